#pragma once

#include <string>
#include <string_view>

namespace kelvane {

// Converts a text with paths to one line of a message. Bytes that are not UTF-8 become what `textFromPath`
// makes of them. Control characters, and backslashes that begin such a sequence themselves, become "\x" and
// two hexadecimal digits. Different names have different lines.
[[nodiscard]] std::string messageLine(std::string_view text);

} // namespace kelvane
