#pragma once

#include "Foundation/Value.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <concepts>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace kelvane {

// One argument of a format: an integer, a real number, or a reference to a text or to a value for `%@`.
class FormatArgument {
public:
    // NOLINTBEGIN(google-explicit-constructor)
    template <std::integral T>
    FormatArgument(T number) : content_(integer(number)) {}
    FormatArgument(double number) : content_(number) {}
    FormatArgument(const char* text) : content_(textOf(text)) {}
    FormatArgument(std::string_view text) : content_(text) {}
    // Only these exact types: a converted temporary would be destroyed before it is formatted.
    template <std::same_as<std::string> T>
    FormatArgument(const T& text) : content_(std::string_view(text)) {}
    template <std::same_as<Value> T>
    FormatArgument(const T& value) : content_(&value) {}
    // NOLINTEND(google-explicit-constructor)

    using Content = std::variant<std::int64_t, std::uint64_t, double, std::string_view, const Value*>;
    [[nodiscard]] const Content& content() const { return content_; }

private:
    template <std::integral T>
    static Content integer(T number) {
        if constexpr (std::is_signed_v<T>)
            return static_cast<std::int64_t>(number);
        else
            return static_cast<std::uint64_t>(number);
    }
    static std::string_view textOf(const char* text) { return text ? std::string_view(text) : "(null)"; }

    Content content_;
};

// Returns `format` with its arguments inserted. The conversions are `%@` for the description of a value or
// for any other argument, `%s`, `%c`, `%d %i %u %x %X %o` with length modifiers, `%f %e %g` and `%%`. Flags,
// width, precision and the selection of an argument ("%2$@") are as in printf. An integer is truncated to the
// width of the length modifier, or to 32 bits without one. A conversion whose argument is missing or of
// another kind becomes "(null)"; an unknown conversion is copied. The function never fails and never reads
// beyond the arguments.
[[nodiscard]] std::string formatArguments(std::string_view format, std::span<const FormatArgument> arguments);

namespace detail {

// A conversion of a format.
struct Conversion {
    std::size_t position = 0; // from 1; 0 stands for the next argument
    std::string_view flags;
    int width = -1;     // -1 stands for none
    int precision = -1; // -1 stands for none
    int lengthBits = 32;
    char letter = 0; // 0 when the format ends before the letter
};

constexpr std::string_view takeAny(std::string_view& format, std::string_view characters) {
    const std::string_view taken = format.substr(0, format.find_first_not_of(characters));
    format.remove_prefix(taken.size());
    return taken;
}

// Returns -1 without digits. The limit keeps lines readable, and hostile formats cheap.
constexpr int takeNumber(std::string_view& format) {
    constexpr int limit = 4096;
    const std::string_view digits = takeAny(format, "0123456789");
    int number = digits.empty() ? -1 : 0;
    for (const char digit : digits)
        number = std::min(number * 10 + (digit - '0'), limit);
    return number;
}

// Removes what follows a "%" from the format.
constexpr Conversion takeConversion(std::string_view& format) {
    Conversion conversion;
    conversion.width = format.starts_with('0') ? -1 : takeNumber(format);
    if (conversion.width > 0 && format.starts_with('$')) {
        format.remove_prefix(1);
        conversion.position = static_cast<std::size_t>(conversion.width);
        conversion.width = -1;
    }
    if (conversion.width < 0) {
        conversion.flags = takeAny(format, "-+ #0");
        conversion.width = takeNumber(format);
    }
    if (format.starts_with('.')) {
        format.remove_prefix(1);
        conversion.precision = std::max(takeNumber(format), 0);
    }
    for (const char length : takeAny(format, "hlqjzt"))
        conversion.lengthBits = length != 'h' ? 64 : conversion.lengthBits == 16 ? 8 : 16;
    conversion.letter = format.empty() ? '\0' : format.front();
    format.remove_prefix(std::min<std::size_t>(format.size(), 1));
    return conversion;
}

enum class ArgumentKind { Integer, Real, Text, Object };

template <class T>
constexpr ArgumentKind kindOfArgument = std::integral<T>         ? ArgumentKind::Integer
                                        : std::floating_point<T> ? ArgumentKind::Real
                                        : std::same_as<T, Value> ? ArgumentKind::Object
                                                                 : ArgumentKind::Text;

constexpr bool takesArgument(char letter, ArgumentKind kind) {
    const auto isOneOf = [letter](std::string_view letters) {
        return letters.find(letter) != std::string_view::npos;
    };
    const bool isNumber = kind == ArgumentKind::Object;
    return isOneOf("@s") || (isOneOf("feg") && (isNumber || kind == ArgumentKind::Real)) ||
           (isOneOf("cdiuxXo") && (isNumber || kind == ArgumentKind::Integer));
}

// Returns whether the format has a conversion for every argument, and for every conversion an argument of its
// kind.
constexpr bool fitsArguments(std::string_view format, std::span<const ArgumentKind> arguments) {
    std::size_t next = 0;
    std::size_t used = 0;
    while (!format.empty()) {
        const bool isPlain = format.front() != '%';
        format.remove_prefix(1);
        if (isPlain)
            continue;
        const Conversion conversion = takeConversion(format);
        if (conversion.letter == '%')
            continue;
        const std::size_t index = conversion.position > 0 ? conversion.position - 1 : next++;
        if (index >= arguments.size() || !takesArgument(conversion.letter, arguments[index]))
            return false;
        used = std::max(used, index + 1);
    }
    return used == arguments.size();
}

void formatDoesNotFitItsArguments(); // not constexpr, so that a call is an error at compile time

// A format in the source code; it compiles only if it fits its arguments.
template <class... Arguments>
class Format {
public:
    template <std::convertible_to<std::string_view> Text>
    consteval Format(const Text& text) : text_(text) { // NOLINT(google-explicit-constructor)
        constexpr std::array<ArgumentKind, sizeof...(Arguments)> kinds{kindOfArgument<Arguments>...};
        if (!fitsArguments(text_, kinds))
            formatDoesNotFitItsArguments();
    }
    [[nodiscard]] constexpr std::string_view text() const { return text_; }

private:
    std::string_view text_;
};

} // namespace detail

template <class... Arguments>
using FormatFor = detail::Format<std::type_identity_t<Arguments>...>;

// For a format known only at run time, such as a translated one.
template <class... Arguments>
[[nodiscard]] std::string formatTranslated(std::string_view format, const Arguments&... arguments) {
    const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
    return formatArguments(format, list);
}

template <class... Arguments>
[[nodiscard]] std::string formatText(FormatFor<Arguments...> format, const Arguments&... arguments) {
    return formatTranslated(format.text(), arguments...);
}

// Returns the system's text for an error number of `errno`.
[[nodiscard]] std::string errorText(int error = errno);

} // namespace kelvane
