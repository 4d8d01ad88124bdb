#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Rules/MountedSelection.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

// Returns the pending files of at least `size` bytes, holes counted: while restic reads one, nothing else
// is saved. Any thread; blocks on the disk. Ends early, with an incomplete result, once
// `stopping` is set.
[[nodiscard]] std::vector<std::string> pendingLargeFiles(const MountedSelection& selection,
                                                         const BackupIndex& index, std::uint64_t size,
                                                         const std::atomic<bool>& stopping);

} // namespace kelvane
