#pragma once

#include "LocalDaemon/Restore/RestorePlan.h"

#include <cstdint>
#include <vector>

namespace kelvane {

// Pieces that are restored together.
struct RestorePortion {
    RestorePieces pieces;
    std::uint64_t bytes = 0; // The size of their files; names of one large file are counted once.
};

struct RestorePortions {
    std::vector<RestorePortion> portions;
    RestorePieces folders; // The divided folders; each comes before its contents.
};
// Divides the pieces, in the order of the backup, into portions of at most an eighth of `freeSpace` (bytes),
// unless a single file is larger. Files that may be names of one inode are in one portion.
[[nodiscard]] RestorePortions divided(const BackupIndex& index, const RestorePieces& pieces,
                                      std::uint64_t freeSpace);

} // namespace kelvane
