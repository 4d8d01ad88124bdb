#pragma once

#include <string_view>

namespace kelvane {

// Returns whether `pattern` matches the whole of `text`. Case is ignored, for single bytes in the current C
// locale. Each string ends at its first NUL byte.
//
// The only wildcard is the star: "*" matches any characters except "/", "**" (or more stars) any characters.
// Three rules are less obvious, and exclude patterns rely on them:
//   - at the end of the pattern a single star matches any characters, "/" included;
//   - "*/" extends to the next "/" of the text and never to a later one;
//   - the character that follows a star matches a letter of either case, or exactly that byte.
//
// Patterns come from outside, therefore time and memory are bounded. The time is at most proportional to the
// product of the lengths of pattern and text, and the memory to the sum of these two lengths, whatever the
// pattern and the text contain.
[[nodiscard]] bool WildcardMatch(std::string_view pattern, std::string_view text);

} // namespace kelvane
