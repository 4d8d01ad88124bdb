#pragma once

#include "Foundation/CleanPath.h"
#include "LocalDaemon/Backup/BackupRun.h"
#include "LocalDaemon/Backup/BackupSchedule.h"
#include "LocalDaemon/Backup/Verification.h"
#include "LocalDaemon/Index/IndexKeeper.h"
#include "LocalDaemon/State/KnownDisks.h"
#include "LocalDaemon/State/PlannedBackup.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace kelvane {

// Runs backups and verifications on a thread of its own, when they are due or requested. Stops a task
// that is no longer allowed, and a backup whose rules have changed.
//
// `start` and `stop` belong to the owner's thread; any thread may call the rest, which returns without
// waiting for the work.
class BackupRunner {
public:
    struct Options {
        BackupSchedule::Options schedule;
        // Stops a backup that makes no progress for this long. restic counts bytes once they have
        // arrived: five concurrent packs, each of 4 MiB and a chunk of at most 8 MiB, are 60 MiB, which
        // take two hours at 70 kbit/s.
        std::chrono::milliseconds stallTimeout = std::chrono::hours(2);
        // The same after restic has reported a retry, when the server is most likely not responding. At
        // 1 Mbit/s five usual packs take three minutes.
        std::chrono::milliseconds stallTimeoutInRetries = std::chrono::minutes(5);
        // In bytes: a file of this size takes so long to read that everything else is backed up first.
        std::uint64_t largeFile = std::uint64_t{64} << 30U;
    };

    BackupRunner(std::shared_ptr<DaemonState> state, std::shared_ptr<KnownDisks> disks,
                 std::shared_ptr<IndexKeeper> keeper, std::shared_ptr<Verification> verification,
                 const Options& options);
    ~BackupRunner();
    BackupRunner(const BackupRunner&) = delete;
    BackupRunner& operator=(const BackupRunner&) = delete;

    // Must be called before `start`. `listener` is called on the runner's thread when the index has been
    // updated from the repository.
    void setIndexListener(std::function<void()> listener) { indexListener_ = std::move(listener); }
    void start();
    void stop();
    void noteNeed(const BackupNeed& need);
    void noteRules();
    // Nothing is forgotten during a restore, since that could delay it by hours.
    void noteRestores(bool areWaiting);
    // Updates the index from the repository if necessary, without waiting for the next retry.
    void connectNow();
    // Records that the repository lacks a snapshot of the index.
    void noteSnapshotGone();
    // Backs up the real path, or what is selected below it, before anything else. "/" requests
    // everything.
    void backUpNow(const std::string& path);
    // Reads the whole repository when no backup or restore is running.
    void verifyNow();
    [[nodiscard]] PlannedBackup planned();
    // Stores damaged files again, even if undamaged data in damaged packs is lost by that.
    void storeAgain();

private:
    using Clock = BackupSchedule::Clock;
    using Task = BackupSchedule::Task;
    struct Work {
        Task task = Task::None;
        std::shared_ptr<StopSignal> stop = {};
        bool yieldsToRestores = false; // Whether a restore that starts now stops the task.
    };

    void run();
    // Blocks until there is a task. No task means that the runner stops.
    [[nodiscard]] Work takeWork();
    void perform(Task task, const StopSignal& stop);
    [[nodiscard]] bool beginYieldingToRestores();
    void endYieldingToRestores();
    void verify(const StopSignal& stop);
    [[nodiscard]] ResticOutcome verifyStored(bool isAwaited, const StopSignal& stop);
    [[nodiscard]] ResticOutcome attempt(Task task, const StopSignal& stop);
    [[nodiscard]] ResticOutcome attemptAgain(Task task, const StopSignal& stop, ResticOutcome before);
    [[nodiscard]] ResticOutcome connect(const StopSignal& stop);
    [[nodiscard]] ResticOutcome backUpWanted(const StopSignal& stop);
    // The scope of one restic call.
    struct Part {
        std::string path = everything;
        std::vector<std::string> leftOut = {};   // Excluded files.
        std::vector<std::string> readAgain = {}; // Files that `parent` lacks.
        std::string parent = {};                 // The id of a snapshot; empty for the last complete one.
        bool isForced = false;                   // Every file is read again.
        [[nodiscard]] bool isWhole() const { return path == everything && leftOut.empty(); }
    };
    [[nodiscard]] ResticOutcome backUpEverything(const StopSignal& stop);
    [[nodiscard]] ResticOutcome backUp(const Part& part, const StopSignal& stop);
    [[nodiscard]] std::vector<std::string> filesToComeLast(const StopSignal& stop) const;
    void reportLarge(const std::vector<std::string>& paths) const;
    // The conditions at the start of a call.
    struct Before {
        std::uint64_t changes;
        MountsOfSelection mounts;
        std::set<std::string, std::less<>> absent;
    };
    [[nodiscard]] ResticOutcome takeMade(const Part& part, Before before, IndexKeeper::Made made,
                                         BackupRun::Result result, const StopSignal& stop);
    void describe(BackupRun::Wanted& wanted, const BackupIndex& index, const Part& part,
                  bool isIncomplete) const;
    [[nodiscard]] bool prepareRepair(const StopSignal& stop);
    void noteUnread(std::vector<std::string> unread, bool isPartial, std::uint64_t changes);
    [[nodiscard]] ResticOutcome forgetOld(const StopSignal& stop);
    void noteIndexCurrent();
    void takeFailure(const std::string& reason);
    void takeOutcome(const ResticOutcome& outcome);
    void noteOutcome(const ResticOutcome& outcome);
    void report(const ResticOutcome& outcome);
    void noteFailure(const std::string& failure);
    [[nodiscard]] std::string reasonFor(BackupSchedule::Obstacle obstacle) const;
    void reportUnread(const std::vector<std::string>& paths);

    const std::shared_ptr<DaemonState> state_;
    const std::shared_ptr<KnownDisks> disks_;
    const std::shared_ptr<IndexKeeper> keeper_;
    const std::shared_ptr<Verification> verification_;
    const Options options_;
    std::function<void()> indexListener_ = [] {};
    std::thread thread_;

    std::mutex mutex_; // Guards the members below.
    std::condition_variable changed_;
    bool isNoted_ = false;
    bool isUrgent_ = false;    // Do not wait for the next retry.
    bool mustConnect_ = false; // Connect again.
    bool stopping_ = false;
    BackupNeed need_;
    std::set<std::string> wanted_;
    bool isRestoring_ = false;
    Work work_; // The running task.
    BackupSchedule schedule_;
    std::string failure_; // The reason of the last failure, as a sentence; empty after a success.
    std::chrono::system_clock::time_point plannedDate_;

    // The members below belong to the runner's thread.
    bool isConnected_ = false;
};

} // namespace kelvane
