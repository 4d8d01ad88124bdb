#pragma once

#include "Platform/Desktop/PanePlugin.h"

#include <memory>
#include <string>

namespace kelvane::host {

// A new pane, or why it cannot be created and what the user can do.
struct PaneLoading {
    std::unique_ptr<Pane> pane;
    std::string problem;
};

// Loads the bundle's plug-in, which stays in the process, and creates its pane. Main thread only.
[[nodiscard]] PaneLoading loadPane(const PaneBundle& bundle, PaneHost& host);

} // namespace kelvane::host
