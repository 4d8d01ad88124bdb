#pragma once

#include <cstdint>

namespace kelvane {

// The conditions for starting a backup.
struct BackupNeed {
    bool mayAdd = false;       // Data may be added to the repository.
    bool mayRead = false;      // The repository may be read.
    bool isKnown = false;      // The scan is complete and was compared with the index.
    bool isPending = false;    // There are pending files, and not only unreadable ones.
    bool hasUnread = false;    // There are pending files, all of them unreadable.
    std::uint64_t changes = 0; // Counts the changes that the scan has seen.
    bool hasLowerPriority = false;
};

} // namespace kelvane
