#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// Conversions between the encodings of text, all strict: a lone surrogate, an overlong form, a number above
// 0x10FFFF or a text that ends in the middle of a character is refused.

[[nodiscard]] bool isAscii(std::string_view text);
[[nodiscard]] bool isUtf8(std::string_view text);

// None when a surrogate stands alone. `bytes` holds whole units of two bytes, the higher one first.
[[nodiscard]] std::optional<std::string> utf8FromUtf16BigEndian(std::span<const std::uint8_t> bytes);

// Replaces `units` by the text in UTF-16, the higher byte first. False when `text` is not UTF-8.
[[nodiscard]] bool setUtf16BigEndian(std::vector<std::uint8_t>& units, std::string_view text);

// Names of files are bytes, and text must be UTF-8: on the link, in logs and for people a byte of a name that
// is not UTF-8 is written as U+FFFD and two hexadecimal digits, "\xE9" as "\uFFFDE9". Where a name holds just
// that, the three bytes of its U+FFFD are written so. Every other name that is UTF-8 is its own text. Texts
// of two names differ, and a path may be converted whole or name by name.
[[nodiscard]] std::string textFromPath(std::string_view path);
// What else the text holds stands for itself.
[[nodiscard]] std::string pathFromText(std::string_view text);

} // namespace kelvane
