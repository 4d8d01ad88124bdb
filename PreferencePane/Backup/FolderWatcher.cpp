#include "PreferencePane/Backup/FolderWatcher.h"

#include "Foundation/PathComponents.h"
#include "Support/Logging.h"

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>

namespace kelvane {
namespace {

constexpr std::chrono::seconds longestWait(5);

bool isSameOrAbove(const std::string& path, const std::string& other) {
    const std::vector<std::string> components = pathComponents(path);
    const std::vector<std::string> others = pathComponents(other);
    return std::ranges::mismatch(components, others).in1 == components.end();
}

} // namespace

std::unique_ptr<FolderWatcher> FolderWatcher::create(std::shared_ptr<MainLoop> mainLoop,
                                                     DiskPathChanged diskPathChanged) {
    std::string reason;
    try {
        std::unique_ptr<FolderWatcher> watcher(
            new FolderWatcher(std::move(mainLoop), std::move(diskPathChanged)));
        reason = watcher->watch_.error();
        if (reason.empty()) {
            watcher->thread_ = std::thread(&FolderWatcher::watcherThread, watcher.get());
            return watcher;
        }
    } catch (const std::system_error& error) { // no descriptor or no thread available
        reason = error.what();
    }
    logError("Folders cannot be watched: %@", reason);
    return nullptr;
}

FolderWatcher::FolderWatcher(std::shared_ptr<MainLoop> mainLoop, DiskPathChanged diskPathChanged)
    : mainLoop_(std::move(mainLoop)), diskPathChanged_(std::move(diskPathChanged)) {}

FolderWatcher::~FolderWatcher() {
    stopWatching();
    {
        const std::scoped_lock guard(mutex_);
        runWatcherThread_ = false;
    }
    changed_.notify_all();
    watch_.wake();
    if (thread_.joinable())
        thread_.join();
}

void FolderWatcher::watchAllOfPath(const std::string& path, const Volumes& volumes) {
    if (isSameOrAbove(path, watchedPath_))
        return;
    stopWatching();
    watchedPath_ = path;
    std::string next = path;
    for (std::size_t length = 0; next.size() != length; next = deleteLastPathComponent(next)) {
        length = next.size();
        watchPath(next, volumes);
    }
}

void FolderWatcher::watchPath(const std::string& path, const Volumes& volumes) {
    const std::optional<std::string> real = volumes.realPath(path);
    const std::scoped_lock guard(mutex_);
    const bool isWatched =
        std::ranges::any_of(watched_, [&](const Watched& other) { return real == other.realPath; });
    if (!real || isWatched)
        return;
    const DirectoryWatch::Outcome outcome = watch_.add(*real);
    if (outcome == DirectoryWatch::Outcome::Watching)
        watched_.push_back({path, *real});
    else if (outcome == DirectoryWatch::Outcome::LimitReached)
        KelvaneCLog("%@ is not watched: the limit of inotify watches is reached", path);
}

void FolderWatcher::stopWatching() {
    const std::scoped_lock guard(mutex_);
    for (const Watched& each : watched_)
        watch_.remove(each.realPath);
    watched_.clear();
}

std::vector<std::string> FolderWatcher::watchedPaths() const {
    const std::scoped_lock guard(mutex_);
    std::vector<std::string> paths;
    for (const Watched& each : watched_)
        paths.push_back(each.path);
    return paths;
}

void FolderWatcher::watcherThread() {
    const auto runs = [this] {
        const std::scoped_lock guard(mutex_);
        return runWatcherThread_;
    };
    while (runs())
        for (const std::string& path : changedPaths(watch_.wait(longestWait)))
            report(path);
}

// The watched paths to which the events belong; after an overflow all of them.
std::vector<std::string> FolderWatcher::changedPaths(const std::vector<DirectoryWatch::Event>& events) {
    std::set<std::string> changed;
    for (const DirectoryWatch::Event& event : events)
        changed.insert(event.path);
    const bool isAll = changed.contains(std::string());
    const std::scoped_lock guard(mutex_);
    std::vector<std::string> paths;
    for (const Watched& each : watched_)
        if (isAll || changed.contains(each.realPath))
            paths.push_back(each.path);
    return paths;
}

// Blocks until the main thread has handled the change or waits for this thread to end.
void FolderWatcher::report(const std::string& path) {
    {
        const std::scoped_lock guard(mutex_);
        isHandled_ = false;
    }
    mainLoop_->post([this, path, presence = std::weak_ptr(presence_)] {
        if (presence.expired())
            return;
        diskPathChanged_(path);
        if (presence.expired())
            return;
        const std::scoped_lock guard(mutex_);
        isHandled_ = true;
        changed_.notify_all();
    });
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return isHandled_ || !runWatcherThread_; });
}

} // namespace kelvane
