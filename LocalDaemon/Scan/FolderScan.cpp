#include "LocalDaemon/Scan/FolderScan.h"

#include "Foundation/CleanPath.h"
#include "Platform/Files/MountTable.h"
#include "Support/Logging.h"

#include <algorithm>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr auto reportInterval = 200ms;
// The time between two reads during a burst of changes: a program that writes constantly must not wake
// this thread at every write.
constexpr auto burstStep = 10ms;
// After a listing, a folder is not listed again for this many times the listing's duration.
constexpr int restAfterListing = 20;
constexpr std::size_t mostChangedFolders = 1000;
constexpr std::size_t mostLossyLinks = 100; // Links that are reported.
// By default at most `mostUnseen` folders are rechecked every five minutes: 100,000 take four hours.
constexpr int rechecksPerRound = 288;
constexpr std::size_t mostUnseen = 2000;

} // namespace

FolderScan::FolderScan(Rules rules, Index index, Tree tree, Listener listener, const Options& options)
    : listener_(std::move(listener)),
      options_(options),
      watch_(DirectoryWatch::Contents::Watched, options.mostWatches),
      rules_(std::move(rules)),
      mounts_(options_.mounts()),
      selection_(rules_, mounts_),
      index_(std::move(index)),
      tree_(std::move(tree)) {
    report_.index = index_;
}

FolderScan::~FolderScan() {
    stop();
}

void FolderScan::start() {
    if (!watch_.error().empty())
        logError("Folders cannot be watched: %@", watch_.error());
    thread_ = std::thread([this] { run(); });
}

void FolderScan::stop() {
    {
        const std::scoped_lock guard(mutex_);
        stopping_ = true;
    }
    stopped_.notify_all();
    watch_.wake();
    if (thread_.joinable())
        thread_.join();
}

void FolderScan::setRules(Rules rules) {
    {
        const std::scoped_lock guard(mutex_);
        nextRules_ = std::move(rules);
    }
    watch_.wake();
}

void FolderScan::setIndex(Index index) {
    {
        const std::scoped_lock guard(mutex_);
        nextIndex_ = std::move(index);
    }
    watch_.wake();
}

void FolderScan::recheckEverything() {
    mustLookAtEverything_ = true;
    watch_.wake();
}

void FolderScan::run() {
    lastReportTime_ = Clock::now();
    nextPoll_ = lastReportTime_ + options_.rescanInterval;
    nextRecheck_ = lastReportTime_ + options_.longestUnseen / rechecksPerRound;
    const auto failed = [this](const std::string& reason) {
        options_.failed(reason);
        pause(1s); // The next task may fail as well.
    };
    runGuarded("scanning", failed, [this] {
        addRoots();
        scanEverything();
    });
    while (!stopping_)
        runGuarded("scanning", failed, [this] { work(); });
}

void FolderScan::work() {
    takeRules();
    takeMounts();
    takeIndex();
    if (mustLookAtEverything_.exchange(false))
        scanEverything();
    if (dirty_.empty()) {
        finishPass();
        waitForChanges();
        return;
    }
    Folder& next = **dirty_.begin();
    dirty_.erase(dirty_.begin());
    relist(next);
    if (!stopping_ && Clock::now() - lastReportTime_ >= reportInterval) {
        takeChanges(watch_.wait(0ms)); // Reads events before the kernel's queue overflows.
        report();
    }
}

void FolderScan::scanEverything() {
    report_.isScanning = true;
    for (const auto& [path, root] : tree_->roots())
        FolderTree::forEach(*root, [this](Folder& folder) { recheck(folder); });
    if (reported_)
        report(); // Reports the start of the scan, however short it will be.
}

void FolderScan::relist(Folder& folder) {
    const auto begin = Clock::now();
    const std::string path = FolderTree::pathOf(folder);
    if (!silentMountAround(path).empty()) // System calls on it could not be interrupted.
        return static_cast<void>(polled_.insert(&folder));
    const bool wasWatched = folder.isWatched;
    watch(folder, path); // Watches first, so that changes during the listing are noticed.
    const FolderContents contents = contentsOf(path);
    if (stopping_)
        return;
    noteListing(folder, path, contents);
    const FolderCounts before = folder.own;
    const bool wasListed = folder.isListed;
    const FolderTree::Difference difference = tree_->update(folder, contents);
    const bool isDifferent = before != folder.own || !difference.added.empty() || !difference.removed.empty();
    // A watched folder is listed again because something has changed, perhaps inside a file.
    const bool isOnlyRecheck = std::exchange(folder.isOnlyRecheck, false);
    if (wasListed && (isDifferent || (wasWatched && !isOnlyRecheck)))
        noteChangedFolder(path);
    for (const auto& removed : difference.removed)
        forget(*removed);
    dirty_.insert(difference.added.begin(), difference.added.end());
    // A subfolder that becomes readable causes an event only in its parent folder.
    for (const auto& subfolder : folder.subfolders)
        if (!subfolder->isReadable)
            markChanged(*subfolder);
    const auto end = Clock::now();
    folder.notBefore = end + restAfterListing * (end - begin);
}

void FolderScan::noteListing(Folder& folder, const std::string& path, const FolderContents& contents) {
    folder.isReadable = contents.error == 0;
    if (folder.isWatched && folder.isReadable && !isRemote(typeOfMountAround(path)))
        polled_.erase(&folder);
    else
        polled_.insert(&folder);
    if (contents.lossyLinks.empty())
        lossyLinks_.erase(&folder);
    else
        lossyLinks_[&folder] = contents.lossyLinks;
}

// Watching an encrypted folder would keep it unlocked: its files would stay visible and readable after its
// key is removed. It is watched only below an encrypted scan root, which has the same key.
void FolderScan::watch(Folder& folder, const std::string& path) {
    const Folder* root = &folder;
    while (root->parent)
        root = root->parent;
    if (isEncrypted(path) && !isEncrypted(root->name)) {
        watch_.remove(path);
        folder.isWatched = false;
        return;
    }
    const DirectoryWatch::Outcome outcome = watch_.add(path);
    folder.isWatched = outcome == DirectoryWatch::Outcome::Watching;
    if (outcome != DirectoryWatch::Outcome::LimitReached || report_.isWatchIncomplete)
        return;
    report_.isWatchIncomplete = true;
    logWarning("Cannot watch %@ and perhaps other folders: no inotify watches are left, of which the daemon "
               "uses at most half (fs.inotify.max_user_watches). Changes there are noticed within %lld s. To "
               "watch more folders, raise the limit and restart the daemon.",
               path, std::chrono::ceil<std::chrono::seconds>(options_.rescanInterval).count());
}

void FolderScan::recheck(Folder& folder) {
    if (dirty_.insert(&folder).second)
        folder.isOnlyRecheck = !deferred_.contains(&folder);
}

void FolderScan::markChanged(Folder& folder) {
    folder.isOnlyRecheck = false;
    if (Clock::now() < folder.notBefore && !dirty_.contains(&folder))
        deferred_.insert(&folder);
    else
        dirty_.insert(&folder);
}

void FolderScan::forget(Folder& folder) {
    FolderTree::forEach(folder, [this](Folder& each) {
        watch_.remove(FolderTree::pathOf(each));
        dirty_.erase(&each);
        deferred_.erase(&each);
        polled_.erase(&each);
        lossyLinks_.erase(&each);
    });
}

void FolderScan::noteChangedFolder(const std::string& path) {
    if (report_.changedFolders.size() == mostChangedFolders)
        report_.changedFolders.assign(1, everything);
    else
        report_.changedFolders.push_back(path);
}

void FolderScan::finishPass() {
    if (std::exchange(report_.isScanning, false)) {
        const FileTotals files = tree_->totals().files;
        KelvaneCLog("The scan has found %llu files with %llu bytes.", files.count, files.bytes);
        logUnreadable();
    }
    report_.index = index_;
    report();
}

void FolderScan::logUnreadable() {
    const auto isUnreadable = [](const Folder* folder) { return !folder->isReadable; };
    const auto first = std::find_if(polled_.begin(), polled_.end(), isUnreadable);
    std::string unreadable;
    if (first != polled_.end())
        unreadable =
            formatText("%lld, among them %@", std::count_if(polled_.begin(), polled_.end(), isUnreadable),
                       FolderTree::pathOf(**first));
    if (std::exchange(loggedUnreadable_, unreadable) != unreadable && !unreadable.empty())
        logWarning("Folders that cannot be read are not backed up: %@", unreadable);
}

void FolderScan::report() {
    lastReportTime_ = Clock::now();
    const FolderCounts counts = tree_->totals();
    report_.totals = counts.files;
    report_.pending = counts.pending;
    report_.otherPending = counts.otherPending;
    report_.lossyLinks.clear();
    for (const auto& [folder, names] : lossyLinks_)
        for (const std::string& name : names)
            if (report_.lossyLinks.size() < mostLossyLinks)
                report_.lossyLinks.push_back(withSeparator(FolderTree::pathOf(*folder)) + name);
    const bool isNew =
        !reported_ || reported_->totals != report_.totals || reported_->pending != report_.pending ||
        reported_->otherPending != report_.otherPending || reported_->index != report_.index ||
        reported_->isScanning != report_.isScanning ||
        reported_->isWatchIncomplete != report_.isWatchIncomplete || !report_.changedFolders.empty();
    if (!isNew || stopping_)
        return;
    listener_(report_);
    report_.changedFolders.clear();
    reported_ = report_;
}

void FolderScan::waitForChanges() {
    const auto changes = watch_.wait(timeUntilNextTask(Clock::now()));
    if (!changes.empty() && !stopping_) {
        takeChanges(changes);
        gatherBurst();
    }
    takeDue(Clock::now());
}

void FolderScan::gatherBurst() {
    const auto begin = Clock::now();
    auto last = begin;
    for (auto now = begin;
         !stopping_ && now - last < options_.quiet && now - begin < options_.longestBurst;) {
        pause(burstStep);
        const auto changes = watch_.wait(0ms);
        now = Clock::now();
        if (changes.empty())
            continue;
        last = now;
        takeChanges(changes);
    }
}

void FolderScan::takeChanges(const std::vector<DirectoryWatch::Event>& changes) {
    for (const auto& [path, change] : changes) {
        if (change == DirectoryWatch::Change::Overflow) {
            logNotice("The queue of file events overflowed; everything is scanned again.");
            scanEverything();
            for (Folder* const folder : dirty_)
                folder->isOnlyRecheck = false;
        } else if (Folder* const folder = tree_->find(path)) {
            markChanged(*folder);
            if (change == DirectoryWatch::Change::Gone && folder->parent)
                markChanged(*folder->parent);
        }
    }
}

void FolderScan::takeDue(Clock::time_point now) {
    for (auto at = deferred_.begin(); at != deferred_.end();) {
        if ((*at)->notBefore <= now) {
            dirty_.insert(*at);
            at = deferred_.erase(at);
        } else {
            ++at;
        }
    }
    if (now >= nextPoll_) {
        for (Folder* const folder : polled_)
            recheck(*folder);
        nextPoll_ = now + options_.rescanInterval;
    }
    if (now >= nextRecheck_) {
        recheckUnseen(now);
        nextRecheck_ = now + options_.longestUnseen / rechecksPerRound;
    }
}

void FolderScan::recheckUnseen(Clock::time_point now) {
    std::size_t count = 0;
    for (const auto& [path, root] : tree_->roots())
        FolderTree::forEach(*root, [&](Folder& folder) {
            if (folder.isListed && now - folder.notBefore >= options_.longestUnseen && count < mostUnseen) {
                recheck(folder);
                ++count;
            }
        });
}

std::chrono::milliseconds FolderScan::timeUntilNextTask(Clock::time_point now) const {
    auto next = polled_.empty() ? nextRecheck_ : std::min(nextRecheck_, nextPoll_);
    for (const Folder* folder : deferred_)
        next = std::min(next, folder->notBefore);
    return std::max(0ms, std::chrono::ceil<std::chrono::milliseconds>(next - now));
}

void FolderScan::pause(std::chrono::milliseconds duration) {
    std::unique_lock guard(mutex_);
    stopped_.wait_for(guard, duration, [this] { return stopping_.load(); });
}

} // namespace kelvane
