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

// The jobs that wait to be restored, and the thread that does them: the higher priority first, then the
// order in which they came. A job outlives the daemon: one that was running is done again from its beginning.
//
// Any thread.
class RestoreQueue {
public:
    struct Options {
        std::string journalPath;
        std::shared_ptr<const Restic> restic;
        // Null as long as it is not known what is in the backup: until then jobs wait, and `wake` says that
        // it is. Any thread; the queue's mutex may be held. While the repository cannot be reached they wait
        // as long as `waits` takes.
        std::function<std::shared_ptr<const BackupIndex>()> index;
        // Called with the queue's mutex held, so they take note and return. All jobs that were there have
        // ended when the progress has no job; then `onEnd` tells what failed of them.
        std::function<void(const RestoreProgress&)> onProgress;
        std::function<void(const std::vector<RestoreFailure>&)> onEnd;
        // Asks for the index while it is null and the repository can be reached. Why the last try to get it
        // failed; empty while one is under way.
        std::function<std::string()> askForIndex = [] { return std::string(); };
        // The index is not that of the repository any more: it is null from now on until it is. On the
        // queue's thread.
        std::function<void()> onSnapshotGone = [] {};
        // On the queue's thread.
        WorkFailed failed = [](const std::string&) {};
        // Why jobs have to wait; empty when they go on. And why one was refused. On any thread.
        std::function<void(const std::string& reason)> onWait = [](const std::string&) {};
        std::function<void(const std::string& reason)> onRefusal = [](const std::string&) {};
        // Why a job is not on the disk, and ends with this process. On any thread.
        std::function<void(const std::string& reason)> onUnkept = [](const std::string&) {};
        // At the start: why jobs that were waiting may be missing.
        std::function<void(const std::string& reason)> onDamagedJournal = [](const std::string&) {};
        // Why nothing may be put there; empty when it may. On the queue's thread.
        std::function<std::string(const std::string& target)> refusal = [](const std::string&) {
            return std::string();
        };
        // Bytes that a folder's disk still takes.
        std::function<std::uint64_t(const std::string& folder)> freeSpace = freeSpaceAt;
        // Before each further try to reach the repository; ten minutes in all.
        std::vector<std::chrono::milliseconds> waits = usualWaits();
    };

    [[nodiscard]] static std::vector<std::chrono::milliseconds> usualWaits();

    explicit RestoreQueue(Options options);
    ~RestoreQueue();
    RestoreQueue(const RestoreQueue&) = delete;
    RestoreQueue& operator=(const RestoreQueue&) = delete;

    // What a daemon that was killed has left standing is taken away before anything is restored.
    void start();
    // Interrupts what is running, which is done again after the next start.
    void stop();
    void wake();

    // The job's number; 0, which is refused, when its paths make no sense or there are too many. Links on the
    // way to its target are followed now and never again. One that cannot be written down is done all the
    // same, since a disk that takes nothing any more is a reason to restore; but it ends with the daemon.
    [[nodiscard]] std::uint32_t add(RestoreJob job);
    // Says why a job is not taken; 0, as which it is known then.
    std::uint32_t refuse(const std::string& reason);
    // The running one too. Whole files stay.
    void cancelAll();

    [[nodiscard]] std::uint32_t currentJob() const;             // 0: none
    [[nodiscard]] std::uint32_t status(std::uint32_t id) const; // of restorestatus
    // What an ended job could not restore: a line for each file, without control characters. Of 0: why the
    // last one was refused.
    [[nodiscard]] std::string failures(std::uint32_t id) const;

private:
    struct Waiting {
        RestoreJob job;
        std::uint64_t files = 1;
        bool isRunning = false;
        // The index of the first attempt, when that failed for a snapshot that was removed; otherwise null.
        std::shared_ptr<const BackupIndex> before = {};
    };

    void work();
    void removeLeft(const RestoreJournal::Contents& left);
    [[nodiscard]] bool waitForWork(std::unique_lock<std::mutex>& lock,
                                   std::shared_ptr<const BackupIndex>& index);
    // Why it is not known what is in the backup; empty: nothing is in the way of finding it out.
    [[nodiscard]] std::string troubleWithBackup() const;
    // Each for the same reason, which may be empty.
    void endAll(std::unique_lock<std::mutex>& lock, std::uint32_t status, const std::string& reason);
    [[nodiscard]] std::vector<RestoreJob> takeBatch(const BackupIndex& index);
    void failBatch(const std::vector<RestoreJob>& jobs, const std::string& reason);
    void runBatch(const std::vector<RestoreJob>& jobs, const std::shared_ptr<const BackupIndex>& index);
    [[nodiscard]] std::set<std::uint32_t> takeRepeated(const std::vector<RestoreJob>& jobs,
                                                       std::vector<RestoreRun::Failures>& failures,
                                                       const std::shared_ptr<const BackupIndex>& index);
    // With the mutex held, so they log and write nothing: that may take long.
    void end(std::uint32_t id, RestoreJournal::Ended ended);
    void keep(std::uint32_t id, RestoreJournal::Ended ended);
    void report();
    void reportEnd();
    [[nodiscard]] std::uint32_t firstJob() const;

    const Options options_;
    RestoreJournal journal_;
    mutable std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    StopSignal stopping_;
    std::uint32_t nextId_ = 1;
    std::deque<Waiting> waiting_; // in the order in which they will be done, the running ones first
    std::map<std::uint32_t, RestoreJournal::Ended> ended_;
    std::string refusal_;                  // the last one
    std::size_t endedBytes_ = 0;           // of the failures in there
    std::vector<RestoreFailure> failures_; // since something began
    std::shared_ptr<StopSignal> running_;  // null: nothing is
    Arrival arrival_;                      // of what is running
    std::thread thread_;
};

} // namespace kelvane
