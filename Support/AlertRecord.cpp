#include "Support/AlertRecord.h"

#include <cstddef>

namespace kelvane {
namespace {

constexpr char separator = '|';
// The escaped form of a separator inside a field. It has no semicolon; one after it is part of the text.
constexpr std::string_view escapedSeparator = "&#124";

constexpr std::size_t fieldCount = 6;
constexpr std::size_t severityField = 1;
constexpr std::size_t titleField = 4;
constexpr std::size_t bodyField = 5;

AlertRecord::Style styleOf(std::string_view severity) {
    if (severity == "error")
        return AlertRecord::Style::Critical;
    return severity == "warning" ? AlertRecord::Style::Warning : AlertRecord::Style::Informational;
}

std::string unescaped(std::string_view field) {
    std::string text;
    for (std::size_t next = field.find(escapedSeparator); next != std::string_view::npos;
         next = field.find(escapedSeparator)) {
        text += field.substr(0, next);
        text += separator;
        field.remove_prefix(next + escapedSeparator.size());
    }
    return text.append(field);
}

} // namespace

std::vector<std::string> alertStringComponents(std::string_view alertString) {
    std::vector<std::string> components;
    for (std::size_t next = alertString.find(separator); next != std::string_view::npos;
         next = alertString.find(separator)) {
        components.emplace_back(alertString.substr(0, next));
        alertString.remove_prefix(next + 1);
    }
    components.emplace_back(alertString);
    return components;
}

std::optional<AlertRecord> alertWithKelvaneStringComponents(std::span<const std::string> components) {
    if (components.size() != fieldCount || components[titleField].empty() || components[bodyField].empty())
        return std::nullopt;
    return AlertRecord{styleOf(components[severityField]), unescaped(components[titleField]),
                       unescaped(components[bodyField])};
}

} // namespace kelvane
