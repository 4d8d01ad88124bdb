#pragma once

#include "Foundation/Value.h"

#include <chrono>
#include <string>

namespace kelvane {

// Returns a text that can be sent to panes: the protocol rejects a whole dictionary for one text that is
// not UTF-8. Invalid bytes are replaced, which is logged.
[[nodiscard]] std::string textForPanes(const std::string& text);

[[nodiscard]] Date dateForPanes(std::chrono::system_clock::time_point time);

} // namespace kelvane
