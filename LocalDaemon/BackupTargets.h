#pragma once

#include "LocalDaemon/BackupRules.h"

#include <atomic>
#include <string>
#include <vector>

namespace kelvane {

// The fewest paths that together hold everything at `path` and below that the rules put in the backup, as it
// stands on the disk now, and nothing else: a folder stands for all that is in it. "/" asks for everything.
//
// Any thread; blocks on the disk. Ends early, with less than there is, once `stopping` is set.
[[nodiscard]] std::vector<std::string> backupTargets(const BackupRules& rules, const std::string& path,
                                                     const std::atomic<bool>& stopping);

} // namespace kelvane
