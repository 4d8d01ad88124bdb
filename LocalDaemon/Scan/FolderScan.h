#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Rules/MountedSelection.h"
#include "LocalDaemon/Scan/FolderTree.h"
#include "Platform/Files/DirectoryWatch.h"
#include "Support/GuardedWork.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

namespace kelvane {

struct ScanReport {
    FileTotals totals;       // Of the selected files; incomplete while everything is scanned.
    bool isScanning = false; // Everything is scanned, not only what has changed.
    // A folder could not be watched since no watch was left, and is listed every `rescanInterval` instead.
    // Stays true even if watches become free and that folder is watched later.
    bool isWatchIncomplete = false;
    // Folders that have changed since the previous report. "/" stands for very many.
    std::vector<std::string> changedFolders;
    FileTotals pending;                       // Files that are not in the index or have changed.
    std::uint64_t otherPending = 0;           // Other pending items, as in FolderCounts.
    std::shared_ptr<const BackupIndex> index; // The index that everything was compared with; never null.
    // Pending links whose targets restic cannot save; the first hundred.
    std::vector<std::string> lossyLinks = {};
};

// Counts the selected files and the pending items on a thread of its own, and updates the counts when files,
// the rules or the index change: it watches the folders, and lists a changed one again once the burst of
// changes is over. Links are not followed; other file systems are scanned only when they were added
// themselves. Folders that cannot be watched or read, and those on remote file systems, which do not report
// all changes, are listed again every `rescanInterval`, and all others once per `longestUnseen`, a few at a
// time.
//
// The owner's thread calls `start` and `stop`, any thread the other functions. `stop` blocks for at most one
// file-system call. The listener is called on the scan's thread, without a lock.
class FolderScan {
public:
    using Listener = std::function<void(const ScanReport&)>;

    struct Options {
        // A burst of changes ends when nothing has changed for `quiet`, and at the latest after
        // `longestBurst`.
        std::chrono::milliseconds quiet{50};
        std::chrono::milliseconds longestBurst{500};
        // How often folders are listed that cannot be watched or read, or are on a remote file system.
        std::chrono::milliseconds rescanInterval = std::chrono::minutes(10);
        // How often all other folders are listed, since some changes cause no event, such as writes to a
        // memory-mapped file.
        std::chrono::milliseconds longestUnseen = std::chrono::hours(24);
        // By default half of the user's limit, because other programs watch folders as well.
        std::size_t mostWatches = DirectoryWatch::systemLimit() / 2;
        std::function<std::shared_ptr<const MountPoints>()> mounts = currentMountPoints;
        WorkFailed failed = [](const std::string&) {}; // Called on the scan's thread.
    };

    // `Rules` and `Index` are never null.
    using Rules = std::shared_ptr<const BackupRules>;
    using Index = std::shared_ptr<const BackupIndex>;
    using Tree = std::shared_ptr<FolderTree>;

    // `tree` must be empty, and only the scan may change it.
    FolderScan(Rules rules, Index index, Tree tree, Listener listener, const Options& options);
    ~FolderScan();
    FolderScan(const FolderScan&) = delete;
    FolderScan& operator=(const FolderScan&) = delete;

    void start();
    void stop();
    // These record the request and return without waiting for the scan.
    void setRules(Rules rules);
    // Compares pending items, and those that the new index has as deleted, with the index. Other items are
    // assumed to be in it as well.
    void setIndex(Index index);
    void recheckEverything();

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void work();
    void scanEverything();
    void takeRules();
    void takeIndex();
    void takeMounts();
    void dropRootsBut(const std::set<std::string>& wanted);
    void addRoots();
    void drop(Folder& folder);
    void lookAgainAt(const std::string& path);
    void relist(Folder& folder);
    void noteListing(Folder& folder, const std::string& path, const FolderContents& contents);
    [[nodiscard]] FolderContents contentsOf(const std::string& path) const;
    // `saved` is the entry's item in the index; `around` is the folder.
    [[nodiscard]] bool isPending(const FolderEntry& entry, const BackupIndex::Item* saved,
                                 const BackupIndex::Item* around) const;
    [[nodiscard]] bool isInLastSnapshot(const BackupIndex::Item* saved, std::string_view path) const;
    [[nodiscard]] std::uint64_t savedIn(const BackupIndex::Item& folder) const;
    void watch(Folder& folder, const std::string& path);
    // Queues a listing although no change was reported.
    void recheck(Folder& folder);
    void markChanged(Folder& folder);
    void forget(Folder& folder);
    void noteChangedFolder(const std::string& path);
    void finishPass();
    void logUnreadable();
    void report();

    void waitForChanges();
    void gatherBurst();
    void takeChanges(const std::vector<DirectoryWatch::Event>& changes);
    void takeDue(Clock::time_point now);
    void recheckUnseen(Clock::time_point now);
    [[nodiscard]] std::chrono::milliseconds timeUntilNextTask(Clock::time_point now) const;
    void pause(std::chrono::milliseconds duration);

    const Listener listener_;
    const Options options_;
    DirectoryWatch watch_;
    std::atomic<bool> stopping_{false};
    std::mutex mutex_;
    std::condition_variable stopped_;
    Rules nextRules_; // Guarded by the mutex; null when unchanged.
    Index nextIndex_; // Guarded by the mutex; null when unchanged.
    std::atomic<bool> mustLookAtEverything_{false};
    std::thread thread_;

    // The members below belong to the scan's thread.
    Rules rules_;
    std::shared_ptr<const MountPoints> mounts_;
    MountedSelection selection_; // Of `rules_` and `mounts_`.
    Index index_;
    const Tree tree_;
    std::unordered_set<Folder*> dirty_;    // Folders to be listed.
    std::unordered_set<Folder*> deferred_; // Folders to be listed after their `notBefore`.
    // Folders that are listed every `rescanInterval`: unwatched or unreadable ones, and those on remote file
    // systems.
    std::unordered_set<Folder*> polled_;
    std::map<const Folder*, std::vector<std::string>> lossyLinks_; // The names of links.
    // When `polled_` are listed again, and when folders are that were not listed for `longestUnseen`.
    Clock::time_point nextPoll_;
    Clock::time_point nextRecheck_;
    Clock::time_point lastReportTime_;
    ScanReport report_;
    std::string loggedUnreadable_;
    std::optional<ScanReport> reported_;
};

} // namespace kelvane
