#include "Foundation/Format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <system_error>

namespace kelvane {
namespace {

constexpr std::string_view noArgument = "(null)";
// More would only make a log line unreadable, and a hostile format expensive.
constexpr int largestWidth = 4096;

struct Conversion {
    std::size_t position = 0; // from 1; 0: the next argument
    std::string flags;        // flags, width and precision as they stood
    int lengthBits = 32;
    char letter = 0;
};

class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    [[nodiscard]] bool atEnd() const { return at_ == text_.size(); }
    [[nodiscard]] char peek() const { return atEnd() ? '\0' : text_[at_]; }
    [[nodiscard]] std::size_t offset() const { return at_; }
    char take() { return text_[at_++]; }

    // -1 without digits.
    int number() {
        if (peek() < '0' || peek() > '9')
            return -1;
        int value = 0;
        while (peek() >= '0' && peek() <= '9')
            value = std::min(value * 10 + (take() - '0'), largestWidth);
        return value;
    }

private:
    std::string_view text_;
    std::size_t at_ = 0;
};

void takeWidth(Scanner& scanner, Conversion& conversion, int width) {
    if (width >= 0)
        conversion.flags += std::to_string(width);
    if (scanner.peek() == '.') {
        scanner.take();
        conversion.flags += '.' + std::to_string(std::max(scanner.number(), 0));
    }
}

// Reads what follows a '%'. None when the text ends before a letter comes.
std::optional<Conversion> takeConversion(Scanner& scanner) {
    Conversion conversion;
    int leading = scanner.peek() == '0' ? -1 : scanner.number();
    if (leading > 0 && scanner.peek() == '$') {
        scanner.take();
        conversion.position = static_cast<std::size_t>(leading);
        leading = -1;
    }
    if (leading < 0) {
        while (!scanner.atEnd() && std::string_view("-+ #0").find(scanner.peek()) != std::string_view::npos)
            conversion.flags += scanner.take();
        leading = scanner.number();
    }
    takeWidth(scanner, conversion, leading);
    while (!scanner.atEnd() && std::string_view("hlqjzt").find(scanner.peek()) != std::string_view::npos) {
        const char length = scanner.take();
        conversion.lengthBits = length != 'h' ? 64 : conversion.lengthBits == 16 ? 8 : 16;
    }
    if (scanner.atEnd())
        return std::nullopt;
    conversion.letter = scanner.take();
    return conversion;
}

template <class T>
std::string printed(const Conversion& conversion, std::string_view suffix, T value) {
    const std::string format = '%' + conversion.flags + std::string(suffix);
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
    Scanner scanner(format);
    while (!scanner.atEnd()) {
        const std::size_t start = scanner.offset();
        if (const char character = scanner.take(); character != '%') {
            text += character;
            continue;
        }
        const std::optional<Conversion> conversion = takeConversion(scanner);
        if (conversion && conversion->letter == '%') {
            text += '%';
        } else if (!conversion || !isKnown(conversion->letter)) {
            text += format.substr(start, scanner.offset() - start);
        } else {
            const std::size_t index = conversion->position > 0 ? conversion->position - 1 : next++;
            text +=
                index < arguments.size() ? textOf(*conversion, arguments[index]) : std::string(noArgument);
        }
    }
    return text;
}

std::string errorText(int error) {
    return std::generic_category().message(error);
}

} // namespace kelvane
