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

// Backs up and verifies on a thread of its own, when its schedule says so, and at once what is wanted at
// once. Stops when it may not any more or the rules have changed.
//
// `start` and `stop` belong to the owner's thread, the rest to any, and only takes note.
class BackupRunner {
public:
    struct Options {
        BackupSchedule::Options schedule;
        // With a backup that gets on with nothing. restic counts what has arrived: five packs at once, each
        // of 4 MiB and a piece of at most 8, are 60 MiB, which 70 kbit/s bring there in two hours.
        std::chrono::milliseconds patience = std::chrono::hours(2);
        // The same when restic has said that it tries again: by then most likely nobody answers. At
        // 1 Mbit/s five usual packs take three minutes.
        std::chrono::milliseconds patienceWithRetries = std::chrono::minutes(5);
        // Bytes of a file that takes so long to read that everything else is backed up before it.
        std::uint64_t largeFile = std::uint64_t{64} << 30U;
    };

    BackupRunner(std::shared_ptr<DaemonState> state, std::shared_ptr<KnownDisks> disks,
                 std::shared_ptr<IndexKeeper> keeper, std::shared_ptr<Verification> verification,
                 const Options& options);
    ~BackupRunner();
    BackupRunner(const BackupRunner&) = delete;
    BackupRunner& operator=(const BackupRunner&) = delete;

    // `listener` is called when the index has become that of the repository, on the runner's thread. Before
    // `start`.
    void setIndexListener(std::function<void()> listener) { indexListener_ = std::move(listener); }
    void start();
    void stop();
    void noteNeed(const BackupNeed& need);
    void noteRules();
    // As long as files are being restored, nothing is forgotten: that would keep them waiting for hours.
    void noteRestores(bool areWaiting);
    // Makes the index that of the repository if it is not, without a wait for another try.
    void connectNow();
    // The repository lacks a snapshot that the index names.
    void noteSnapshotGone();
    // Real path: it, or what is in the backup below it, is backed up before anything else. "/" asks for
    // everything.
    void backUpNow(const std::string& path);
    // Reads all that is in the backup when nothing is backed up or restored.
    void verifyNow();
    [[nodiscard]] PlannedBackup planned();
    // Stores again what is damaged, even where whole parts of damaged packs go with that.
    void storeAgain();

private:
    using Clock = BackupSchedule::Clock;
    using Task = BackupSchedule::Task;
    struct Work {
        Task task = Task::None;
        std::shared_ptr<StopSignal> stop = {};
        bool yieldsToRestores = false; // just now
    };

    void run();
    // Blocks until something is to be done. No task: the runner stops.
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
    // What one call of restic is to back up.
    struct Part {
        std::string path = everything;
        std::vector<std::string> leftOut = {};   // files
        std::vector<std::string> readAgain = {}; // files that `parent` lacks
        std::string parent = {};                 // the id of a snapshot; empty: the last complete one
        bool isForced = false;                   // every file is read again
        [[nodiscard]] bool isWhole() const { return path == everything && leftOut.empty(); }
    };
    [[nodiscard]] ResticOutcome backUpEverything(const StopSignal& stop);
    [[nodiscard]] ResticOutcome backUp(const Part& part, const StopSignal& stop);
    [[nodiscard]] std::vector<std::string> filesToComeLast(const StopSignal& stop) const;
    void reportLarge(const std::vector<std::string>& paths) const;
    // What was so when a call began.
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

    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    bool isNoted_ = false;
    bool isUrgent_ = false;    // no wait for another try
    bool mustConnect_ = false; // again
    bool stopping_ = false;
    BackupNeed need_;
    std::set<std::string> wanted_;
    bool isRestoring_ = false;
    Work work_; // under way
    BackupSchedule schedule_;
    std::string failure_; // of the last attempt, as a sentence; empty: it succeeded
    std::chrono::system_clock::time_point plannedDate_;

    // What follows belongs to the runner's thread.
    bool isConnected_ = false;
};

} // namespace kelvane
