#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Rules/MountedSelection.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

// The files of at least so many bytes, holes included, that are to be backed up and are not as the index has
// them: while restic reads one nothing else is saved. Any thread; blocks on the disk. Ends early, with less
// than there is, once `stopping` is set.
[[nodiscard]] std::vector<std::string> largeFilesWaiting(const MountedSelection& selection,
                                                         const BackupIndex& index, std::uint64_t size,
                                                         const std::atomic<bool>& stopping);

} // namespace kelvane
