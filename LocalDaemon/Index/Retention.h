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

// Times are seconds since 1970.
struct RetentionLimits {
    std::int64_t now = 0;
    std::chrono::days keep{}; // after a version was replaced or deleted
    // Before it the clock was another one: what was made earlier counts as made then.
    std::int64_t clockSteadySince = 0;
    std::set<std::string> held = {}; // ids of snapshots that stay whatever their age
    // By sequence number: when a snapshot was first listed. restic dates it by the beginning of the backup,
    // and the machine may sleep for weeks before the end.
    std::map<std::uint64_t, std::int64_t> made = {};
};

// The ids of the snapshots that may be forgotten. The versions in a snapshot were replaced or deleted by the
// time of the next complete one at the latest, so that one's age counts and not its own; what is only
// followed by partial snapshots stays. Nothing may be forgotten as long as a snapshot lies ahead of the
// clock.
[[nodiscard]] std::vector<std::string> snapshotsToForget(const std::vector<Snapshot>& inOrderOfCreation,
                                                         const RetentionLimits& limits);

// Many files that one complete snapshot held and the next one does not.
struct Disappearance {
    std::string id;                  // of the snapshot that does not hold them
    std::int64_t time = 0;           // of that snapshot
    std::set<std::string> snapshots; // the ids of those that held them last
    std::uint64_t files = 0;
    std::uint64_t of = 0; // as many were in the backup

    friend bool operator==(const Disappearance&, const Disappearance&) = default;
};

[[nodiscard]] bool isDisappearance(std::uint64_t files, std::uint64_t of);

// What the snapshot numbered `complete` does not hold any more and those from `previous` on, up to it, did.
// None when that is a usual number of files.
[[nodiscard]] std::optional<Disappearance> disappearanceAt(const BackupIndex& index, std::uint32_t previous,
                                                           std::uint32_t complete);

// The files that the backup would lose with these snapshots.
[[nodiscard]] std::uint64_t filesHeldLastBy(const BackupIndex& index, const std::set<std::string>& snapshots);

} // namespace kelvane
