#pragma once

#include "Foundation/Value.h"

#include <chrono>
#include <string>

namespace kelvane {

// A text as panes can be told it: the link refuses a whole dictionary for one text that is not UTF-8. What is
// not is replaced, which is logged.
[[nodiscard]] std::string textForPanes(const std::string& text);

[[nodiscard]] Date dateForPanes(std::chrono::system_clock::time_point time);

} // namespace kelvane
