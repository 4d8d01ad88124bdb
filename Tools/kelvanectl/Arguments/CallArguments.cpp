#include "Tools/kelvanectl/Arguments/CallArguments.h"

#include "Foundation/Unicode.h"
#include "Support/Json/JsonPropertyList.h"

#include <cctype>
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
            '"' + text + "\" is not a whole number from " + std::to_string(+Limits::min()) + " to " +
                std::to_string(+Limits::max())};
}

ArgumentReading flagFromText(const std::string& text) {
    if (text == "true" || text == "false")
        return {text == "true" ? 1 : 0, {}};
    ArgumentReading number = numberFromText<signed char>(text);
    if (!number.error.empty())
        number.error += ", nor true or false";
    return number;
}

// Text that is not JSON is taken literally, unless it begins like an object, an array or a string, or is
// a number that a property list cannot hold.
bool isPlainText(const std::string& text) {
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error != std::errc::invalid_argument &&
                          std::isdigit(static_cast<unsigned char>(text.back())) != 0 &&
                          end == text.data() + text.size();
    return !isNumber && text != "null" &&
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
    case 'c': return flagFromText(text);
    case 'I': return numberFromText<std::uint32_t>(text);
    default: return {{}, "an argument of the type " + std::string(type) + " cannot be typed"};
    }
}

} // namespace kelvane::ctl
