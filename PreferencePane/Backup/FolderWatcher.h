#pragma once

#include "Foundation/MainLoop.h"
#include "Platform/Files/DirectoryWatch.h"
#include "Platform/Files/Volumes.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kelvane {

// Watches a folder and all those above it on a thread of its own, and tells on the main loop which of them
// have changed: something was made, deleted or renamed in them, or they were themselves. The thread waits
// until that has been dealt with; what changes meanwhile is told once afterwards.
//
// Everything but the thread is on the main thread. When this goes, nothing is told any more.
class FolderWatcher {
public:
    using DiskPathChanged = std::function<void(const std::string& path)>;

    // Null when the system refuses to watch anything.
    [[nodiscard]] static std::unique_ptr<FolderWatcher> create(std::shared_ptr<MainLoop> mainLoop,
                                                               DiskPathChanged diskPathChanged);
    ~FolderWatcher();
    FolderWatcher(const FolderWatcher&) = delete;
    FolderWatcher& operator=(const FolderWatcher&) = delete;

    // The path, as `volumes` name it, and every one above it up to "/", instead of those before; nothing
    // when it is the path watched before or one above that. What cannot be watched is not.
    void watchAllOfPath(const std::string& path, const Volumes& volumes);
    // But the path watched before stays known: neither it nor one above it is watched again before another
    // one was.
    void stopWatching();
    // Under these names changes are told. A folder with two names is watched once, under its deepest.
    [[nodiscard]] std::vector<std::string> watchedPaths() const;

private:
    struct Watched {
        std::string path;
        std::string realPath;
    };

    FolderWatcher(std::shared_ptr<MainLoop> mainLoop, DiskPathChanged diskPathChanged);

    void watchPath(const std::string& path, const Volumes& volumes);
    void watcherThread();
    [[nodiscard]] std::vector<std::string> changedPaths(const std::vector<DirectoryWatch::Event>& events);
    void tell(const std::string& path);

    const std::shared_ptr<MainLoop> mainLoop_;
    const DiskPathChanged diskPathChanged_;
    DirectoryWatch watch_;
    std::string watchedPath_; // the deepest one
    // Ends with this object: what is still posted then must not touch it.
    const std::shared_ptr<const void> presence_ = std::make_shared<char>();

    mutable std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::vector<Watched> watched_;
    bool runWatcherThread_ = true;
    bool isTold_ = false;

    std::thread thread_;
};

} // namespace kelvane
