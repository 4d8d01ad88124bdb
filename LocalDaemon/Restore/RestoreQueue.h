#pragma once

#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/Restore/RestoreArrival.h"
#include "LocalDaemon/Restore/RestoreRun.h"
#include "LocalDaemon/Restore/Staging/RestoreJob.h"
#include "LocalDaemon/Restore/Staging/RestoreJournal.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"

#include "Support/GuardedWork.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace kelvane {

// The queue of restore jobs and the thread that runs them by priority, then in the order of their
// arrival. A job outlives the daemon: an interrupted one starts again from the beginning.
//
// Any thread may call it, except that `start` and `stop` belong to the owner.
class RestoreQueue {
public:
    struct Options {
        std::string journalPath;
        std::shared_ptr<const Restic> restic;
        // Returns null while the contents of the backup are unknown: jobs wait until they are known, which
        // `wake` announces. While the repository cannot be reached they wait only as long as `waits` takes,
        // and then fail. Called on any thread; the queue's mutex may be held.
        std::function<std::shared_ptr<const BackupIndex>()> index;
        // Called with the queue's mutex held, so these must only record the event and return. When the
        // progress has no job, all jobs have ended; then `onEnd` is called with their failures.
        std::function<void(const RestoreProgress&)> onProgress;
        std::function<void(const std::vector<RestoreFailure>&)> onEnd;
        // Requests the index while it is null and the repository can be reached. Returns why the last
        // attempt to get it failed; empty while one is running.
        std::function<std::string()> askForIndex = [] { return std::string(); };
        // Called on the queue's thread when the index no longer matches the repository; `index` then
        // returns null until it has been updated.
        std::function<void()> onSnapshotGone = [] {};
        // Called on the queue's thread with the text of an exception that has ended its work.
        WorkFailed failed = [](const std::string&) {};
        // Called on any thread with the reason why jobs have to wait; empty when they continue.
        std::function<void(const std::string& reason)> onWait = [](const std::string&) {};
        // Called on any thread with the reason why a job was refused.
        std::function<void(const std::string& reason)> onRefusal = [](const std::string&) {};
        // Called on any thread with the reason why a job could not be saved and therefore ends with this
        // process.
        std::function<void(const std::string& reason)> onJobNotSaved = [](const std::string&) {};
        // Called by `start` with the reason why pending jobs may have been lost.
        std::function<void(const std::string& reason)> onDamagedJournal = [](const std::string&) {};
        // Returns why nothing may be restored to the target; empty when it may. Called on the queue's
        // thread.
        std::function<std::string(const std::string& target)> refusal = [](const std::string&) {
            return std::string();
        };
        // Returns the free bytes on a folder's disk.
        std::function<std::uint64_t(const std::string& folder)> freeSpace = freeSpaceAt;
        // The wait before each retry to reach the repository; ten minutes in all.
        std::vector<std::chrono::milliseconds> waits = usualWaits();
    };

    [[nodiscard]] static std::vector<std::chrono::milliseconds> usualWaits();

    explicit RestoreQueue(Options options);
    ~RestoreQueue();
    RestoreQueue(const RestoreQueue&) = delete;
    RestoreQueue& operator=(const RestoreQueue&) = delete;

    // Reads the journal and starts the thread. Before it restores anything, the thread removes the staging
    // folders of a killed daemon and restores the modes of folders that it had made accessible.
    void start();
    // Interrupts the running jobs, which run again after the next start, and waits for the thread's end.
    void stop();
    // Must be called when `index` may no longer return null.
    void wake();

    // Returns the job's number, or 0 for a refused job: its paths are invalid, or there are too many
    // jobs. Links in the target's path are resolved now and never again. A job that cannot be saved is
    // run all the same, since a full disk may be the reason to restore, but it ends with the daemon.
    [[nodiscard]] std::uint32_t add(RestoreJob job);
    // Reports why a job is refused. Returns 0, for which `failures` then returns the reason.
    std::uint32_t refuse(const std::string& reason);
    // Cancels all jobs, including the running ones. Complete files stay.
    void cancelAll();

    [[nodiscard]] std::uint32_t currentJob() const;             // The first job; 0 when there is none.
    [[nodiscard]] std::uint32_t status(std::uint32_t id) const; // A value of restorestatus.
    // Returns what a job that has ended could not restore: one line per file, without control characters.
    // For 0, returns why the last refused job was refused.
    [[nodiscard]] std::string failures(std::uint32_t id) const;

private:
    struct QueuedJob {
        RestoreJob job;
        std::uint64_t files = 1; // At least 1, also when the number is unknown.
        bool isRunning = false;
        // The index of the first attempt, when that failed for a snapshot that was removed; otherwise null.
        std::shared_ptr<const BackupIndex> before = {};
    };

    void work();
    void removeLeft(const RestoreJournal::Contents& left);
    [[nodiscard]] bool waitForWork(std::unique_lock<std::mutex>& lock,
                                   std::shared_ptr<const BackupIndex>& index);
    // Asks restic, and blocks. Returns why the contents of the backup are unknown; empty when nothing
    // prevents listing them.
    [[nodiscard]] std::string troubleWithBackup() const;
    // Ends every job with this status, as a failure if the reason is not empty. Unlocks the mutex while it
    // writes the journal.
    void endAll(std::unique_lock<std::mutex>& lock, std::uint32_t status, const std::string& reason);
    [[nodiscard]] std::vector<RestoreJob> takeBatch(const BackupIndex& index);
    void failBatch(const std::vector<RestoreJob>& jobs, const std::string& reason);
    void runBatch(const std::vector<RestoreJob>& jobs, const std::shared_ptr<const BackupIndex>& index);
    [[nodiscard]] std::set<std::uint32_t> takeRepeated(const std::vector<RestoreJob>& jobs,
                                                       std::vector<RestoreRun::Failures>& failures,
                                                       const std::shared_ptr<const BackupIndex>& index);
    // The mutex must be held, so these neither log nor write, which may take long.
    void end(std::uint32_t id, RestoreJournal::Ended ended);
    void keep(std::uint32_t id, RestoreJournal::Ended ended);
    void report();
    void reportEnd();
    [[nodiscard]] std::uint32_t firstJob() const;

    const Options options_;
    RestoreJournal journal_;
    mutable std::mutex mutex_; // Guards the members below.
    std::condition_variable changed_;
    StopSignal stopping_;
    std::uint32_t nextId_ = 1;
    std::deque<QueuedJob> queue_; // In the order of execution, the running ones first.
    std::map<std::uint32_t, RestoreJournal::Ended> ended_;
    std::string refusal_;                   // The reason of the last refusal.
    std::size_t endedBytes_ = 0;            // The size of the failures in `ended_`.
    std::vector<RestoreFailure> failures_;  // Since the queue was last empty.
    std::shared_ptr<StopSignal> batchStop_; // Interrupts the running jobs; null when no job is running.
    Arrival arrival_;                       // Of the running jobs.
    std::thread thread_;
};

} // namespace kelvane
