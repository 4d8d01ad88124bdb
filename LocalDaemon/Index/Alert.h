#pragma once

#include <string>
#include <vector>

namespace kelvane {

struct Alert {
    std::string kind;     // Identifies the alert, also on the link to the pane.
    std::string severity; // "error", "warning" or "information"
    std::string title;
    std::string body;
    // The actions that the alert offers, each as "verb:argument", the most usual first. AlertActions has
    // their handlers; "dismiss:" removes the alert.
    std::vector<std::string> actions = {};

    friend bool operator==(const Alert&, const Alert&) = default;
};

// Reports an exception that ended a piece of work on a thread.
[[nodiscard]] Alert alertForInternalError(const std::string& reason);

// Returns the six fields separated by "|", as a pane parses them.
[[nodiscard]] std::string alertString(const Alert& alert);

} // namespace kelvane
