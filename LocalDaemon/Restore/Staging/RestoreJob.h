#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

// One file or folder that somebody wants back. Real paths, absolute and clean.
struct RestoreJob {
    std::uint32_t id = 0;       // from 1 on
    std::uint32_t version = 0;  // the number of a snapshot; 0: the newest
    std::uint32_t priority = 0; // the higher goes first
    std::string source;
    std::string target;

    friend bool operator==(const RestoreJob&, const RestoreJob&) = default;
};

struct RestoreFailure {
    std::string path; // in the backup
    std::string reason;
    bool isSnapshotGone = false; // the repository does not hold what the index says
};

// How far restoring is, for panes.
struct RestoreProgress {
    std::uint32_t job = 0;      // that is running; 0: none, and there is nothing to do
    std::string file;           // its name, the one that has come last
    std::uint64_t fileSize = 0; // bytes
    std::uint64_t pending = 0;  // files that are still to come, of all jobs

    friend bool operator==(const RestoreProgress&, const RestoreProgress&) = default;
};

} // namespace kelvane
