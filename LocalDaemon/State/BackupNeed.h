#pragma once

#include <cstdint>

namespace kelvane {

// What decides whether something is backed up now.
struct BackupNeed {
    bool mayAdd = false;       // to the repository
    bool mayRead = false;      // what is in it
    bool isKnown = false;      // the scan has looked at everything, and compared it with the index
    bool isWaiting = false;    // something that could be read
    bool hasUnread = false;    // nothing is waiting but what could not be read
    std::uint64_t changes = 0; // counts what the scan has seen change
    bool hasLowerPriority = false;
};

} // namespace kelvane
