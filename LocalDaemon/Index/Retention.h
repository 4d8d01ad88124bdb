#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restic/Snapshots.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelvane {

// The limits of retention. Times are seconds since 1970.
struct RetentionLimits {
    std::int64_t now = 0;
    std::chrono::days keep{}; // How long a version is kept after it was replaced or deleted.
    // When the clock was last set, or first read. Earlier snapshots count as made then.
    std::int64_t clockSteadySince = 0;
    std::set<std::string> held = {}; // Ids of snapshots that are kept regardless of their age.
    // When a snapshot was first listed, by sequence number. restic dates it by the beginning of the
    // backup, and the machine may have been suspended for weeks before its end.
    std::map<std::uint64_t, std::int64_t> firstListed = {};
};

// Returns the ids of the snapshots that may be forgotten. The versions in a snapshot were replaced or
// deleted no later than the next complete snapshot, so the age of that one decides; a snapshot that only
// partial ones follow is kept. While a snapshot is dated in the future, none may be forgotten.
[[nodiscard]] std::vector<std::string> snapshotsToForget(const std::vector<Snapshot>& inOrderOfCreation,
                                                         const RetentionLimits& limits);

// Many files that one complete snapshot has and the next one lacks.
struct Disappearance {
    std::string id;                  // The id of the snapshot that lacks the files.
    std::int64_t time = 0;           // The time of that snapshot.
    std::set<std::string> snapshots; // The ids of the last snapshots that have the files.
    std::uint64_t files = 0;
    std::uint64_t of = 0; // The number of files in the backup before.

    friend bool operator==(const Disappearance&, const Disappearance&) = default;
};

[[nodiscard]] bool isDisappearance(std::uint64_t files, std::uint64_t of);

// Returns the files that the snapshot `complete` lacks and that `previous` or one between them has. Returns
// no value when they are too few for a disappearance.
[[nodiscard]] std::optional<Disappearance> disappearanceAt(const BackupIndex& index, std::uint32_t previous,
                                                           std::uint32_t complete);

// Returns how many files the backup would lose with these snapshots.
[[nodiscard]] std::uint64_t filesHeldLastBy(const BackupIndex& index, const std::set<std::string>& snapshots);

} // namespace kelvane
