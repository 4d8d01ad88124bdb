#pragma once

#include <string>
#include <string_view>

namespace kelvane {

// A text with paths in it as one line of a message: what is not UTF-8 as `textFromPath` has it, and "\x" with
// two hexadecimal digits for each control character and each backslash that such digits follow. Lines of two
// names differ.
[[nodiscard]] std::string messageLine(std::string_view text);

} // namespace kelvane
