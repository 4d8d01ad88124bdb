#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// Strict conversions between text encodings. They refuse lone surrogates, overlong forms, code points above
// 0x10FFFF, and text that ends in the middle of a character.

[[nodiscard]] bool isAscii(std::string_view text);
[[nodiscard]] bool isUtf8(std::string_view text);

// Returns nothing for a lone surrogate. `bytes` contains complete units of two bytes, big-endian.
[[nodiscard]] std::optional<std::string> utf8FromUtf16BigEndian(std::span<const std::uint8_t> bytes);

// Replaces `units` by the text in big-endian UTF-16. Returns false if `text` is not UTF-8.
[[nodiscard]] bool setUtf16BigEndian(std::vector<std::uint8_t>& units, std::string_view text);

// File names are bytes, but the protocol, logs and messages require UTF-8. A byte that is not UTF-8 is
// written as U+FFFD and two hexadecimal digits: "\xE9" becomes "\uFFFDE9". If a name itself contains such a
// sequence, the three bytes of its U+FFFD are written in this form. Any other UTF-8 name is its own text.
// Different names have different texts, and a path can be converted as a whole or name by name.
[[nodiscard]] std::string textFromPath(std::string_view path);
// The inverse of `textFromPath`. All other characters are copied.
[[nodiscard]] std::string pathFromText(std::string_view text);

} // namespace kelvane
