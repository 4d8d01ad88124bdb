#pragma once

#include "LocalDaemon/Index/BackupIndex.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace kelvane {

// A file or link that changed during a backup may have changed again after it was read, within the same
// tick of the file system's clock. Its attributes then equal the saved ones, and restic would not read
// it again.

// Goes through the items of a snapshot whose backup began at `begin`. An item that changed at `begin` or
// later and is unchanged since it was saved gets a new inode change time (ctime), so that the next backup
// reads it again. Where that time cannot be set, as for a file of another user, the item is marked as
// uncertain. A file that was uncertain in `before`, has not changed since and is not among `readAgain`
// stays uncertain.
// Returns how many items changed late. Blocks on the disk.
std::size_t takeLateChanges(std::vector<SnapshotItem>& items, const BackupIndex& before, FileTime begin,
                            const std::vector<std::string>& readAgain);

// Returns the paths that `before` has and the snapshot lacks, and whose folder changed after the backup
// began. They may have been moved into a folder that had already been read, rather than deleted.
[[nodiscard]] std::vector<std::string> goneLate(const std::vector<SnapshotItem>& items,
                                                const BackupIndex& before, FileTime begin);

// Returns the files that are unchanged since they became uncertain. The next backup needs a parent
// snapshot without them, so that restic reads them. Blocks on the disk.
[[nodiscard]] std::vector<std::string> uncertainFiles(const BackupIndex& index);

// The longest clock tick of file systems with times finer than a second: a file that is read this long
// after `begin` cannot change again with a time before `begin`.
inline constexpr std::chrono::milliseconds longestTick{20};

} // namespace kelvane
