#pragma once

#include "Platform/Desktop/PanePlugin.h"

#include <string>
#include <vector>

namespace kelvane::host {

// A pane's entry in the list; a bundle that cannot be read is named after its folder.
struct PaneDescription {
    PaneBundle bundle;
    std::string title;
    std::string icon; // the path of an image; may be empty
    int order = 0;    // lower values come first; a pane without code comes last
};

// The folders searched for panes: "Bundles" beside the program, then "kelvane/PreferencePanes" in the user's
// and the system's data folders.
[[nodiscard]] std::vector<std::string> paneFolders(const std::string& programFolder);

// The daemon that panes use instead of the one that their bundle names; either path may be empty.
struct DaemonPaths {
    std::string socket; // empty: the bundle's, or the default path if the bundle names none
    std::string log;
};

// Reads the bundle.
[[nodiscard]] PaneDescription describePane(const std::string& path, const DaemonPaths& daemon);

// Finds every "*.prefPane" in the folders, keeps the first of each identifier, and sorts them by `order` and
// title. `first` is a bundle to list before all others, wherever it is and even if it does not exist; empty:
// none.
[[nodiscard]] std::vector<PaneDescription> findPanes(const std::vector<std::string>& folders,
                                                     const std::string& first, const DaemonPaths& daemon);

} // namespace kelvane::host
