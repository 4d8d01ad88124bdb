#pragma once

#include <string_view>

namespace kelvane {

// Whether `text` as a whole is what `pattern` says, ignoring case (of single bytes, in the current C locale).
// Each string ends at its first zero byte.
//
// The one wildcard is the star: "*" stands for any run without a "/", "**" (or more stars) for any run. Three
// things are less obvious, and exclusion patterns rely on them:
//   - at the end of the pattern a single star stands for any run as well, "/" included;
//   - "*/" goes to the next "/" of the text and to no later one;
//   - after a star the next character of the pattern is looked for as a letter of either case, or as the
//   exact byte.
//
// Takes time in proportion to the pattern's length times the text's, whatever they hold, and memory in
// proportion to their sum: patterns come from outside.
[[nodiscard]] bool WildcardMatch(std::string_view pattern, std::string_view text);

} // namespace kelvane
