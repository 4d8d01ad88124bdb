#pragma once

#include "LocalDaemon/Restic/Damage.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>

namespace kelvane {

// What the verification must not lose with the daemon: what is damaged, and how far the reading has come. A
// value; belongs to one thread.
struct VerificationRecord {
    std::string repository; // its id; empty: not known yet
    Damage damage;
    std::set<std::string> damagedPacks; // found by reading, which nothing else finds again
    std::set<std::string> missingPacks; // no index names them any more, and something needs them
    std::set<std::string> othersPacks;  // of the damaged: snapshots of others need them as well
    // All that the other damaged packs hold is on the disk as it was saved, in each snapshot that uses it.
    bool areAllOnDisk = false;
    bool isIndexStale = false; // it names packs that are not there
    bool mustStoreAgain = false;
    unsigned parts = 0; // of a round
    unsigned partsRead = 0;
    std::chrono::system_clock::time_point roundBegan = std::chrono::system_clock::now();
    std::optional<std::chrono::system_clock::time_point> lastVerified;
    std::string lastOutcome;

    // What was known is lost, and all parts of this round are due.
    [[nodiscard]] bool isLost() const { return roundBegan == std::chrono::system_clock::time_point(); }

    // A file that is missing counts as the beginning, a damaged one as lost, which is logged.
    [[nodiscard]] static VerificationRecord read(const std::string& path);
    // A failure is logged.
    void save(const std::string& path) const;

private:
    [[nodiscard]] static VerificationRecord fromValue(const Value& value);
};

} // namespace kelvane
