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

// Watches a folder and all its ancestors on a thread, and reports on the main loop which of them have
// changed: an entry was created, deleted or renamed, or the folder itself was. The thread blocks until a
// report has been handled; changes meanwhile are reported once afterwards.
//
// Everything but the thread runs on the main thread. Nothing is reported after destruction.
class FolderWatcher {
public:
    using DiskPathChanged = std::function<void(const std::string& path)>;

    // Null when the system refuses to watch anything.
    [[nodiscard]] static std::unique_ptr<FolderWatcher> create(std::shared_ptr<MainLoop> mainLoop,
                                                               DiskPathChanged diskPathChanged);
    ~FolderWatcher();
    FolderWatcher(const FolderWatcher&) = delete;
    FolderWatcher& operator=(const FolderWatcher&) = delete;

    // Watches the path, which may be one that `volumes` maps, and all its ancestors up to "/" instead of the
    // previous path. Does nothing when it is the previous path or one of its ancestors. Folders that cannot
    // be watched are skipped.
    void watchAllOfPath(const std::string& path, const Volumes& volumes);
    // The previous path is remembered: it and its ancestors are watched again only after another path was.
    void stopWatching();
    // The names under which changes are reported. A folder with two names is watched once, under the deeper
    // one.
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
    void report(const std::string& path);

    const std::shared_ptr<MainLoop> mainLoop_;
    const DiskPathChanged diskPathChanged_;
    DirectoryWatch watch_;
    std::string watchedPath_; // the deepest folder
    // Tasks that are still posted check it, so that they don't touch a destroyed object.
    const std::shared_ptr<const void> presence_ = std::make_shared<char>();

    mutable std::mutex mutex_; // guards the members below
    std::condition_variable changed_;
    std::vector<Watched> watched_;
    bool runWatcherThread_ = true;
    bool isHandled_ = false;

    std::thread thread_;
};

} // namespace kelvane
