#pragma once

#include "LocalDaemon/BackupIndex.h"

#include <chrono>
#include <cstddef>

namespace kelvane {

// A file that changed while it was backed up may have changed once more after it was read, within the same
// tick of the file system's clock: then nothing on the disk tells it from what was saved. Gives each such
// file of the index that still looks as it was saved, and changed at `begin` or later, a new time of its last
// status change, by setting its mode to what it is, so that the next backup reads it again. Returns how many;
// another user's files stay as they are. Blocks on the disk.
std::size_t touchLateChanges(const BackupIndex& index, FileTime begin);

// The longest tick of a clock that keeps more than seconds: what is read that long after `begin` cannot
// change again with a time before it.
inline constexpr std::chrono::milliseconds longestTick{20};

} // namespace kelvane
