#pragma once

#include "LocalDaemon/Backup/BackupProgress.h"
#include "LocalDaemon/Restic/Repository.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "LocalDaemon/Rules/BackupTargets.h"
#include "LocalDaemon/State/DaemonState.h"

#include <chrono>
#include <string>
#include <unordered_set>
#include <vector>

namespace kelvane {

// A restic call that backs up some paths and updates the state with its progress. In the state it counts
// as running until the index includes its snapshot or the failure is reported. Belongs to one thread,
// which it blocks.
class BackupRun {
public:
    struct Wanted {
        BackupTargets targets;            // The paths to back up.
        std::vector<std::string> leftOut; // Files that are excluded, at most `mostLeftOut`.
        std::vector<std::string> tags;
        std::string parent;    // A snapshot with most files unchanged, to compare with; empty for none.
        bool isForced = false; // Every file is read, and stored where the repository lacks it.
        bool isInitial = false;
        FileTotals unchanged;                      // The files of the targets that are already saved.
        std::optional<std::uint64_t> pendingBytes; // The pending files of the targets; none when unknown.
        bool hasLowerPriority = false;
        std::chrono::milliseconds stallTimeout{};          // Stops a backup without progress for this long.
        std::chrono::milliseconds stallTimeoutInRetries{}; // The same after restic has reported a retry.
    };
    static constexpr std::size_t mostUnread = 10'000;
    static constexpr std::size_t mostLeftOut = 100; // The number of arguments is limited.

    struct Result {
        ResticOutcome outcome;
        std::string snapshotId;          // The id or a prefix of it.
        std::vector<std::string> unread; // Paths that could not be read, at most `mostUnread`.
        std::vector<std::string> gone;   // Paths that were deleted during the backup, at most `mostUnread`.
    };

    BackupRun(DaemonState& state, const Repository& repository);

    [[nodiscard]] Result run(const Wanted& wanted, const StopSignal& stop);

private:
    [[nodiscard]] bool takeLine(std::string_view line);
    [[nodiscard]] bool takeStatus(std::uint64_t files, std::uint64_t bytes, const std::string& path);
    void takeErrorLine(std::string_view line);
    void takeUnread(const BackupLine& error);
    [[nodiscard]] bool wasCacheDamaged(const std::string& parent, const StopSignal& stop) const;
    void tell();

    DaemonState& state_;
    const Repository& repository_;
    Result result_;
    std::unordered_set<std::string> toldUnread_;
    bool hasUnreasonedError_ = false;
    BackupActivity activity_;
    std::optional<ServiceState> troubleBefore_;
    std::optional<BackupProgress> progress_; // Set by `run`.
    std::uint64_t filesSaved_ = 0;           // Finished files.
    std::uint64_t filesDone_ = 0;
    std::uint64_t bytesDone_ = 0;
    std::chrono::steady_clock::time_point lastTold_;
};

} // namespace kelvane
