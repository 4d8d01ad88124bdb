#pragma once

#include "LocalDaemon/Rules/MountedSelection.h"

#include <atomic>
#include <string>
#include <vector>

namespace kelvane {

struct BackupTargets {
    std::vector<std::string> paths;
    std::vector<std::string> emptied; // folders of these that are taken without what is in them
    std::vector<std::string> mounts;  // what is mounted in folders of these, which is out
    std::vector<std::string> unread;  // what could not be looked at: there may be more than the paths hold
};

// The fewest paths that together hold everything at `path` and below that the rules put in the backup, as it
// stands on the disk now, and nothing else: a folder stands for all that is in it, unless it is among the
// emptied ones, from which everything is excluded. None of the paths is below an emptied one. "/" asks for
// everything.
//
// Any thread; blocks on the disk. Ends early, with less than there is, once `stopping` is set.
[[nodiscard]] BackupTargets backupTargets(const MountedSelection& selection, const std::string& path,
                                          const std::atomic<bool>& stopping);

} // namespace kelvane
