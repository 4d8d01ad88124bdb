#pragma once

#include "Foundation/Value.h"

#include <array>
#include <concepts>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace kelvane {

// One argument of a format: an integer, a real, a text, or a value for `%@`.
class FormatArgument {
public:
    // NOLINTBEGIN(google-explicit-constructor)
    template <std::integral T>
    FormatArgument(T number) : content_(integer(number)) {}
    FormatArgument(double number) : content_(number) {}
    FormatArgument(const char* text) : content_(textOf(text)) {}
    FormatArgument(std::string_view text) : content_(text) {}
    // Exactly these: what only converts to one of them would be gone before it is formatted.
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

// The text of `format` with its arguments. Conversions: `%@` a value's description (or any other argument as
// it is), `%s`, `%c`, `%d %i %u %x %X %o` with their length letters, `%f %e %g`, `%%`; flags, width and
// precision as in printf, and "%2$@" to pick an argument. An integer is cut to the width that its length
// letters name (32 bits without one). A conversion without an argument, or with one of another kind, is
// written as "(null)"; an unknown conversion stands as it is. Nothing here fails or reads memory that is not
// there.
[[nodiscard]] std::string formatArguments(std::string_view format, std::span<const FormatArgument> arguments);

template <class... Arguments>
[[nodiscard]] std::string formatText(std::string_view format, const Arguments&... arguments) {
    const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
    return formatArguments(format, list);
}

} // namespace kelvane
