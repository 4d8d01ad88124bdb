#include "Tools/kelvanectl/CallArguments.h"

#include "Foundation/Unicode.h"
#include "Tools/JsonPropertyList.h"

#include <charconv>
#include <cstdint>
#include <limits>

namespace kelvane::ctl {
namespace {

template <class Number>
ArgumentReading numberFromText(const std::string& text) {
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size())
        return {number, {}};
    using Limits = std::numeric_limits<Number>;
    return {{},
            '"' + text + "\" is no whole number from " + std::to_string(+Limits::min()) + " to " +
                std::to_string(+Limits::max())};
}

// Text that is no JSON is meant as it stands, unless it begins like an object, an array or a string, or is a
// number that no property list holds.
bool isPlainText(const std::string& text) {
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isHugeNumber = error == std::errc::result_out_of_range && end == text.data() + text.size();
    return !isHugeNumber && text != "null" &&
           (start == std::string::npos ||
            std::string_view("[{\"").find(text[start]) == std::string_view::npos);
}

ArgumentReading objectFromText(const std::string& text) {
    JsonReading reading = propertyListFromJson(text);
    if (reading.succeeded())
        return {std::move(reading.value), {}};
    if (!isPlainText(text))
        return {{}, std::move(reading.error)};
    if (!isUtf8(text))
        return {{}, "the text is not UTF-8"};
    return {text, {}};
}

} // namespace

ArgumentReading argumentFromText(std::string_view type, const std::string& text) {
    switch (type.empty() ? '\0' : type.front()) {
    case '@': return objectFromText(text);
    case 'c':
        if (text == "true" || text == "false")
            return {text == "true" ? 1 : 0, {}};
        return numberFromText<signed char>(text);
    case 'I': return numberFromText<std::uint32_t>(text);
    case 'q': return numberFromText<std::int64_t>(text);
    case 'Q': return numberFromText<std::uint64_t>(text);
    default: return {{}, "an argument of the type " + std::string(type) + " cannot be typed"};
    }
}

} // namespace kelvane::ctl
