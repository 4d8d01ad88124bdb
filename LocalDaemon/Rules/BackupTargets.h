#pragma once

#include "LocalDaemon/Rules/MountedSelection.h"

#include <atomic>
#include <string>
#include <vector>

namespace kelvane {

struct BackupTargets {
    std::vector<std::string> paths;
    std::vector<std::string> emptied; // Folders of these that are saved without their contents.
    std::vector<std::string> mounts;  // Mount points in folders of these, which are excluded.
    std::vector<std::string> unread;  // Unreadable paths, so that `paths` may be incomplete.
};

// Returns the smallest set of paths that together contain exactly the files at and below `path` that the
// rules select, as the disk is now: a folder stands for all its contents, unless it is among the emptied
// ones, whose contents are excluded. No path is below an emptied one. "/" selects everything.
//
// Any thread; blocks on the disk. Ends early, with an incomplete result, once `stopping` is set.
[[nodiscard]] BackupTargets backupTargets(const MountedSelection& selection, const std::string& path,
                                          const std::atomic<bool>& stopping);

} // namespace kelvane
