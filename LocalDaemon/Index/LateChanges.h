#pragma once

#include "LocalDaemon/Index/BackupIndex.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace kelvane {

// A file or link that changed while it was backed up may have changed once more after it was read, within the
// same tick of the file system's clock: then nothing on the disk tells it from what was saved, and neither
// would restic read a file again.

// Goes over what a snapshot holds, whose backup began at `begin`. What still looks as it was saved
// and changed at `begin` or later gets a new time of its last status change, so that the next backup reads it
// again. Where that cannot be set, as of another user's files, the item gets an uncertain one. So does what
// was uncertain in `before` and is not among `readAgain`. Returns how many changed late. Blocks on the disk.
std::size_t takeLateChanges(std::vector<SnapshotItem>& items, const BackupIndex& before, FileTime begin,
                            const std::vector<std::string>& readAgain);

// What was in a folder before and is not in the snapshot, whose folder changed after the backup had begun. It
// may not have been deleted but moved into a folder that had been read by then.
[[nodiscard]] std::vector<std::string> goneLate(const std::vector<SnapshotItem>& items,
                                                const BackupIndex& before, FileTime begin);

// The files that look as they did when they became uncertain. A snapshot without them has to be the parent of
// the next, so that restic reads them. Blocks on the disk.
[[nodiscard]] std::vector<std::string> uncertainFiles(const BackupIndex& index);

// The longest tick of a clock that keeps more than seconds: what is read that long after `begin` cannot
// change again with a time before it.
inline constexpr std::chrono::milliseconds longestTick{20};

} // namespace kelvane
