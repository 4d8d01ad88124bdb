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

} // namespace kelvane
