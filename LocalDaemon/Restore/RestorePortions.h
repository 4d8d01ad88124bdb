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

// The pieces as portions that are at most a fraction of `room` (bytes), unless a file alone is larger, in the
// order of the backup. Files that may be names of one inode are in one portion, and counted once.
struct RestorePortions {
    std::vector<RestorePortion> portions;
    RestorePieces folders; // that have been divided; each before what is in it
};
[[nodiscard]] RestorePortions divided(const BackupIndex& index, const RestorePieces& pieces,
                                      std::uint64_t room);

} // namespace kelvane
