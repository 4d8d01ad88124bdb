#pragma once

#include <string>
#include <vector>

namespace kelvane {

struct Alert {
    std::string kind;     // tells one alert from another; its id on the link
    std::string severity; // "error", "warning" or "information"
    std::string title;
    std::string body;
    // What a person can do about it, each as "verb:argument", the most usual first. AlertActions holds what
    // does it; "dismiss:" takes the alert away.
    std::vector<std::string> actions = {};

    friend bool operator==(const Alert&, const Alert&) = default;
};

// For what a thread's work has thrown.
[[nodiscard]] Alert alertForInternalError(const std::string& reason);

// The six fields that a pane takes apart again, separated by "|".
[[nodiscard]] std::string alertString(const Alert& alert);

} // namespace kelvane
