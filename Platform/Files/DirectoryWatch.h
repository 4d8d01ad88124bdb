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

// Tells when the entries of folders change: something is made, removed or renamed in them, or they are
// themselves. What happens deeper below is not told; whoever wants it adds those folders too.
//
// A folder that is reached by two paths is watched once and told under both. A path stays on the list until
// it is removed: when its folder is moved away or deleted, it is told as gone, and when a folder stands there
// again and the one above is on the list, it is watched again and told as changed.
//
// Any thread may add, remove and wake; one thread waits. Nothing is watched while `error` is not empty.
class DirectoryWatch {
public:
    // Whether it also counts that a file in the folder is written to, or that permissions change.
    enum class Contents { Ignored, Watched };
    enum class Change {
        Changed,
        Gone,
        Overflow, // without a path: the system has dropped changes, so that everything must be looked at anew
    };
    struct Event {
        std::string path;
        Change change;
    };
    enum class Outcome {
        Watching,
        Refused,      // no folder, or one that cannot be read
        LimitReached, // the user's watches, or the share of them that this one may take, are used up
    };

    // The system allows a user so many watches altogether; `mostWatches` leaves some to other programs.
    explicit DirectoryWatch(Contents contents = Contents::Ignored,
                            std::size_t mostWatches = std::numeric_limits<std::size_t>::max());

    // Why the system refused the watch as a whole; empty when it did not.
    [[nodiscard]] const std::string& error() const { return error_; }

    // Follows links. Adding a path again makes sure that it is the folder that stands there now. A path that
    // is not watched in the end is not on the list.
    [[nodiscard]] Outcome add(const std::string& path);
    void remove(const std::string& path);

    // Blocks until something has changed, `wake` is called or the time is over; then all there is so far,
    // each path once, or nothing. No timeout: for ever.
    [[nodiscard]] std::vector<Event> wait(std::optional<std::chrono::milliseconds> timeout);
    // Ends the wait that is under way, or the next.
    void wake();

    // How many watches the system allows this user; 0 when it does not say.
    [[nodiscard]] static std::size_t systemLimit();

private:
    using Paths = std::map<std::string, int>; // to the number of the watch
    class Gathering;

    [[nodiscard]] bool waitUntilReady(std::optional<std::chrono::milliseconds> timeout) const;
    void readEvents(Gathering& gathering);
    void takeEvent(int number, std::uint32_t mask, Gathering& gathering);
    void recheckFrom(const std::string& path, Gathering& gathering);
    void recheck(const std::string& path, Gathering& gathering);
    void returnOfTheGone(Gathering& gathering);

    [[nodiscard]] Outcome attach(const std::string& path);
    void detach(Paths::iterator path);

    const std::size_t mostWatches_;
    const std::uint32_t mask_;
    FileDescriptor inotify_;
    FileDescriptor wakeup_;
    std::string error_;

    std::mutex mutex_; // guards what follows
    Paths paths_;
    std::unordered_map<int, std::vector<Paths::iterator>> watches_;
    std::set<std::string> gone_; // on the list, but no folder stands there
};

} // namespace kelvane
