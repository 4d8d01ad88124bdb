#pragma once

#include "Foundation/Value.h"

#include <array>
#include <cerrno>
#include <concepts>
#include <span>
#include <string>
#include <string_view>
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

template <class... Arguments>
[[nodiscard]] std::string formatText(std::string_view format, const Arguments&... arguments) {
    const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
    return formatArguments(format, list);
}

// Returns the system's text for an error number of `errno`.
[[nodiscard]] std::string errorText(int error = errno);

} // namespace kelvane
