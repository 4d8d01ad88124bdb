#pragma once

#include "Platform/FileDescriptor.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace kelvane {

// Reports changes of folders: an entry is created, deleted or renamed in a folder, or the folder itself is.
// Changes in sub-folders are not reported unless these are added too.
//
// A folder with two paths is watched once and reported under both. A path stays on the list until it is
// removed: when its folder is moved away or deleted, it is reported as gone; when a folder exists there again
// and its parent is on the list, it is watched again and reported as changed.
//
// Any thread may add, remove and wake; one thread waits. Nothing is watched while `error` is not empty.
class DirectoryWatch {
public:
    // Whether writes to files in the folder and changes of permissions are reported as well.
    enum class Contents { Ignored, Watched };
    enum class Change {
        Changed,
        Gone,
        Overflow, // without a path: the kernel has dropped events, so everything must be scanned again
    };
    struct Event {
        std::string path;
        Change change;
    };
    enum class Outcome {
        Watching,
        Refused,      // not a folder, or not readable
        LimitReached, // the user's watches, or the number that this object may use, are exhausted
    };

    // The system limits the watches per user; `mostWatches` leaves some to other programs.
    explicit DirectoryWatch(Contents contents = Contents::Ignored,
                            std::size_t mostWatches = std::numeric_limits<std::size_t>::max());

    // Why the system refused to watch anything; empty on success.
    [[nodiscard]] const std::string& error() const { return error_; }

    // Follows links. Adding a path again switches to the folder that is there now. A path that could not be
    // watched is not on the list.
    [[nodiscard]] Outcome add(const std::string& path);
    void remove(const std::string& path);

    // Blocks until something has changed, `wake` is called or the timeout expires; returns the events so far,
    // each path once, or none. Without a timeout it blocks for any time.
    [[nodiscard]] std::vector<Event> wait(std::optional<std::chrono::milliseconds> timeout);
    // Ends the current wait, or the next.
    void wake();

    // The number of watches that the system allows this user; 0 when unknown.
    [[nodiscard]] static std::size_t systemLimit();

private:
    using Paths = std::map<std::string, int>; // path to watch number
    class Gathering;

    [[nodiscard]] bool waitUntilReady(std::optional<std::chrono::milliseconds> timeout) const;
    void readEvents(Gathering& gathering);
    void takeEvent(int number, std::uint32_t mask, Gathering& gathering);
    void recheckFrom(const std::string& path, Gathering& gathering);
    void recheck(const std::string& path, Gathering& gathering);
    void recheckGoneFolders(Gathering& gathering);

    [[nodiscard]] Outcome attach(const std::string& path);
    void detach(Paths::iterator path);

    const std::size_t mostWatches_;
    const std::uint32_t mask_;
    FileDescriptor inotify_;
    FileDescriptor wakeup_;
    std::string error_;

    std::mutex mutex_; // guards the members below
    Paths paths_;
    std::unordered_map<int, std::vector<Paths::iterator>> watches_;
    std::set<std::string> gone_; // on the list, but not watched: reported as gone
};

} // namespace kelvane
