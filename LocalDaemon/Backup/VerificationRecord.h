#pragma once

#include "LocalDaemon/Restic/Damage.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>

namespace kelvane {

// The persistent state of the verification: the damage, and how much has been read. A value; belongs to
// one thread.
struct VerificationRecord {
    std::string repository; // The repository's id; empty when unknown.
    Damage damage;
    std::set<std::string> damagedPacks; // Found by reading; a check of the structure does not find them.
    std::set<std::string> missingPacks; // No longer in any index, but needed.
    std::set<std::string> othersPacks;  // Damaged packs that snapshots of others need as well.
    // The disk has all contents of the other damaged packs unchanged, for each snapshot that uses them.
    bool areAllOnDisk = false;
    bool isIndexStale = false; // The index lists missing packs.
    bool mustStoreAgain = false;
    unsigned parts = 0; // The parts of a round.
    unsigned partsRead = 0;
    std::chrono::system_clock::time_point roundBegan = std::chrono::system_clock::now();
    std::optional<std::chrono::system_clock::time_point> lastVerified;
    std::string lastOutcome;

    // Returns whether the record was lost, so that all parts of this round are due.
    [[nodiscard]] bool isLost() const { return roundBegan == std::chrono::system_clock::time_point(); }

    // A missing file is a fresh start; a damaged one counts as lost, which is logged.
    [[nodiscard]] static VerificationRecord read(const std::string& path);
    // A failure is logged.
    void save(const std::string& path) const;

private:
    [[nodiscard]] static VerificationRecord fromValue(const Value& value);
};

} // namespace kelvane
