#pragma once

#include "LocalDaemon/Restore/RestorePlan.h"

#include <cstdint>
#include <vector>

namespace kelvane {

// Pieces that have to be restored together.
struct RestorePortion {
    RestorePieces pieces;
    std::uint64_t bytes = 0;
};

// Divides the pieces, in the order of the backup, into portions of at most a fraction of `room` (bytes),
// unless a single file is larger. Files that may be names of one inode are in one portion and counted
// once.
struct RestorePortions {
    std::vector<RestorePortion> portions;
    RestorePieces folders; // The divided folders; each comes before its contents.
};
[[nodiscard]] RestorePortions divided(const BackupIndex& index, const RestorePieces& pieces,
                                      std::uint64_t room);

} // namespace kelvane
