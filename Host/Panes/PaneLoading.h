#pragma once

#include "Platform/Desktop/PanePlugin.h"

#include <memory>
#include <string>

namespace kelvane::host {

// A new pane, or why there is none and what the user can do about it.
struct PaneLoading {
    std::unique_ptr<Pane> pane;
    std::string problem;
};

// Loads the plug-in of the bundle, which stays in the process, and has it make a pane. Main thread only.
[[nodiscard]] PaneLoading loadPane(const PaneBundle& bundle, PaneHost& host);

} // namespace kelvane::host
