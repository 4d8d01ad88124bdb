#pragma once

#include <string>

namespace kelvane {

struct Alert {
    std::string kind;     // tells one alert from another, not shown
    std::string severity; // "error", "warning" or anything else
    std::string title;
    std::string body;
};

// The six fields that a pane takes apart again, separated by "|".
[[nodiscard]] std::string alertString(const Alert& alert);

} // namespace kelvane
