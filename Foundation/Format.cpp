#include "Foundation/Format.h"

#include <cstdio>
#include <optional>
#include <system_error>

namespace kelvane {
namespace {

constexpr std::string_view noArgument = "(null)";
using detail::Conversion;

template <class T>
std::string printed(const Conversion& conversion, std::string_view suffix, T value) {
    std::string format = '%' + std::string(conversion.flags);
    if (conversion.width >= 0)
        format += std::to_string(conversion.width);
    if (conversion.precision >= 0)
        format += '.' + std::to_string(conversion.precision);
    format += suffix;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(nullptr, 0, format.c_str(), value);
    if (length <= 0)
        return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::snprintf(text.data(), text.size(), format.c_str(), value);
#pragma GCC diagnostic pop
    text.pop_back();
    return text;
}

std::optional<std::uint64_t> integerOf(const FormatArgument& argument) {
    const auto& content = argument.content();
    if (const auto* number = std::get_if<std::int64_t>(&content))
        return static_cast<std::uint64_t>(*number);
    if (const auto* number = std::get_if<std::uint64_t>(&content))
        return *number;
    if (const auto* value = std::get_if<const Value*>(&content); value && (*value)->isNumber())
        return (*value)->uint64Value();
    return std::nullopt;
}

std::string signedText(const Conversion& conversion, std::uint64_t bits) {
    const auto number = static_cast<std::int64_t>(bits);
    const std::int64_t cut = conversion.lengthBits == 64   ? number
                             : conversion.lengthBits == 32 ? static_cast<std::int32_t>(number)
                             : conversion.lengthBits == 16 ? static_cast<std::int16_t>(number)
                                                           : static_cast<std::int8_t>(number);
    return printed(conversion, "lld", static_cast<long long>(cut));
}

std::string unsignedText(const Conversion& conversion, std::uint64_t bits) {
    const std::uint64_t mask = conversion.lengthBits == 64 ? ~0ULL : (1ULL << conversion.lengthBits) - 1;
    return printed(conversion, std::string("ll") + conversion.letter,
                   static_cast<unsigned long long>(bits & mask));
}

std::string realText(const Conversion& conversion, const FormatArgument& argument) {
    if (const auto* number = std::get_if<double>(&argument.content()))
        return printed(conversion, std::string(1, conversion.letter), *number);
    if (const auto* value = std::get_if<const Value*>(&argument.content()); value && (*value)->isNumber())
        return printed(conversion, std::string(1, conversion.letter), (*value)->doubleValue());
    return std::string(noArgument);
}

std::string plainText(const FormatArgument& argument) {
    struct Visitor {
        std::string operator()(std::int64_t number) const { return std::to_string(number); }
        std::string operator()(std::uint64_t number) const { return std::to_string(number); }
        std::string operator()(double number) const { return Value(number).description(); }
        std::string operator()(std::string_view text) const { return std::string(text); }
        std::string operator()(const Value* value) const { return value->description(); }
    };
    return std::visit(Visitor{}, argument.content());
}

std::string textOf(const Conversion& conversion, const FormatArgument& argument) {
    switch (conversion.letter) {
    case '@': return plainText(argument);
    case 's': return printed(conversion, "s", plainText(argument).c_str());
    case 'f':
    case 'e':
    case 'g': return realText(conversion, argument);
    default: break;
    }
    const std::optional<std::uint64_t> bits = integerOf(argument);
    if (!bits)
        return std::string(noArgument);
    if (conversion.letter == 'c')
        return printed(conversion, "c", static_cast<int>(static_cast<unsigned char>(*bits)));
    return conversion.letter == 'd' || conversion.letter == 'i' ? signedText(conversion, *bits)
                                                                : unsignedText(conversion, *bits);
}

bool isKnown(char letter) {
    return std::string_view("@scdiuxXofeg").find(letter) != std::string_view::npos;
}

} // namespace

std::string formatArguments(std::string_view format, std::span<const FormatArgument> arguments) {
    std::string text;
    std::size_t next = 0;
    while (!format.empty()) {
        const std::string_view written = format;
        format.remove_prefix(1);
        if (written.front() != '%') {
            text += written.front();
            continue;
        }
        const Conversion conversion = detail::takeConversion(format);
        if (conversion.letter == '%') {
            text += '%';
        } else if (!isKnown(conversion.letter)) {
            text += written.substr(0, written.size() - format.size());
        } else {
            const std::size_t index = conversion.position > 0 ? conversion.position - 1 : next++;
            text += index < arguments.size() ? textOf(conversion, arguments[index]) : std::string(noArgument);
        }
    }
    return text;
}

std::string errorText(int error) {
    return std::generic_category().message(error);
}

} // namespace kelvane
