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

// One call of restic that backs up some paths, whose progress goes into the state as it comes; there it
// counts as running also afterwards, until the index knows of it or the trouble is told. Belongs to one
// thread, which it blocks.
class BackupRun {
public:
    struct Wanted {
        BackupTargets targets;            // some paths
        std::vector<std::string> leftOut; // files of these, `mostLeftOut` at most
        std::vector<std::string> tags;
        std::string parent;    // a snapshot that most of it is in as it was; empty: none
        bool isForced = false; // every file is read, and stored where the repository does not have it
        bool isInitial = false;
        FileTotals unchanged;                      // of what the targets hold: what is saved already
        std::optional<std::uint64_t> pendingBytes; // of what the targets hold; none: not known
        bool hasLowerPriority = false;
        std::chrono::milliseconds patience{};            // for so long it may get on with nothing
        std::chrono::milliseconds patienceWithRetries{}; // after restic has said that it tries again
    };
    static constexpr std::size_t mostUnread = 10'000;
    static constexpr std::size_t mostLeftOut = 100; // a program takes only so many arguments

    struct Result {
        ResticOutcome outcome;
        std::string snapshotId;          // or its beginning
        std::vector<std::string> unread; // paths that could not be read, `mostUnread` at most
        std::vector<std::string> gone;   // paths that went meanwhile, as many at most
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
    std::optional<BackupProgress> progress_; // while it runs
    std::uint64_t filesSaved_ = 0;           // whole ones
    std::uint64_t filesDone_ = 0;
    std::uint64_t bytesDone_ = 0;
    std::chrono::steady_clock::time_point lastTold_;
};

} // namespace kelvane
