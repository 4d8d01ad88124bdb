#pragma once

#include "Platform/Desktop/PanePlugin.h"

#include <string>
#include <vector>

namespace kelvane::host {

// What the list of panes says about one; a bundle that cannot be read is named after its folder.
struct PaneDescription {
    PaneBundle bundle;
    std::string title;
    std::string icon; // the path of a picture; may be empty
    int order = 0;    // the smaller one stands above; one without code below all others
};

// Where panes are looked for: "Bundles" beside the program, then "kelvane/PreferencePanes" in the user's and
// the system's data folders.
[[nodiscard]] std::vector<std::string> paneFolders(const std::string& programFolder);

// Of the daemon that the panes are to show, in place of what a bundle says; either may be empty.
struct DaemonPaths {
    std::string socket; // the usual one where nobody names any
    std::string log;
};

// Reads the bundle.
[[nodiscard]] PaneDescription describePane(const std::string& path, const DaemonPaths& daemon);

// Every "*.prefPane" in the folders, the first one of each identifier, in the order in which they are listed.
// `first` is a bundle that comes before all others, wherever it is and whether it is there or not; none when
// empty.
[[nodiscard]] std::vector<PaneDescription> findPanes(const std::vector<std::string>& folders,
                                                     const std::string& first, const DaemonPaths& daemon);

} // namespace kelvane::host
