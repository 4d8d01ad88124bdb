#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

// A request to restore a file or folder. The paths are real, absolute and clean.
struct RestoreJob {
    std::uint32_t id = 0;       // Starts at 1.
    std::uint32_t version = 0;  // The number of a snapshot; 0 for the newest version.
    std::uint32_t priority = 0; // Jobs of a higher priority run first.
    std::string source;
    std::string target;

    friend bool operator==(const RestoreJob&, const RestoreJob&) = default;
};

struct RestoreFailure {
    std::string path; // The path in the backup.
    std::string reason;
    bool isSnapshotGone = false; // The repository lacks a snapshot that the index has.
};

// The progress of restoring, for panes.
struct RestoreProgress {
    std::uint32_t job = 0;      // The first job; 0 when there is none.
    std::string file;           // The name of the file that was restored last.
    std::uint64_t fileSize = 0; // In bytes.
    std::uint64_t pending = 0;  // Pending files of all jobs.

    friend bool operator==(const RestoreProgress&, const RestoreProgress&) = default;
};

} // namespace kelvane
