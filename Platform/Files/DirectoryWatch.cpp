#include "Platform/Files/DirectoryWatch.h"

#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <system_error>

namespace kelvane {
namespace {

constexpr const char* systemLimitFile = "/proc/sys/fs/inotify/max_user_watches";

// Without IN_EXCL_UNLINK, writes to a deleted file that is still open would be reported.
constexpr std::uint32_t entryChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MOVE_SELF |
                                       IN_DELETE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
constexpr std::uint32_t contentChanges = IN_MODIFY | IN_ATTRIB;

constexpr std::size_t eventBufferSize = std::size_t{64} << 10U;
// A wait reads this many times at most, so that it ends however fast changes arrive.
constexpr int mostReadingSteps = 16;

} // namespace

// The events of one wait: each path once, with its last event, in the order in which the paths first changed.
class DirectoryWatch::Gathering {
public:
    void add(const std::string& path, Change change) {
        const auto [place, isNew] = places_.try_emplace(path, events_.size());
        if (isNew)
            events_.push_back({path, change});
        else
            events_[place->second].change = change;
    }
    void addOverflow() {
        if (!std::exchange(overflowed_, true))
            events_.push_back({{}, Change::Overflow});
    }
    [[nodiscard]] bool hasChanged(const std::string& path) const {
        const auto place = places_.find(path);
        return place != places_.end() && events_[place->second].change == Change::Changed;
    }
    [[nodiscard]] bool overflowed() const { return overflowed_; }
    [[nodiscard]] std::vector<Event> take() { return std::move(events_); }

private:
    std::vector<Event> events_;
    std::unordered_map<std::string, std::size_t> places_;
    bool overflowed_ = false;
};

DirectoryWatch::DirectoryWatch(Contents contents, std::size_t mostWatches)
    : mostWatches_(mostWatches),
      mask_(contents == Contents::Watched ? entryChanges | contentChanges : entryChanges),
      inotify_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!inotify_)
        error_ = "inotify_init1: " + errorText();
    wakeup_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wakeup_)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

DirectoryWatch::Outcome DirectoryWatch::add(const std::string& path) {
    const std::scoped_lock guard(mutex_);
    gone_.erase(path);
    if (!paths_.contains(path) && watches_.size() >= mostWatches_)
        return Outcome::LimitReached;
    return attach(path);
}

void DirectoryWatch::remove(const std::string& path) {
    const std::scoped_lock guard(mutex_);
    gone_.erase(path);
    if (const auto found = paths_.find(path); found != paths_.end())
        detach(found);
}

std::vector<DirectoryWatch::Event> DirectoryWatch::wait(std::optional<std::chrono::milliseconds> timeout) {
    if (!waitUntilReady(timeout))
        return {};
    Gathering gathering;
    const std::scoped_lock guard(mutex_);
    readEvents(gathering);
    if (!gone_.empty())
        recheckGoneFolders(gathering);
    return gathering.take();
}

void DirectoryWatch::wake() {
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then the waiter wakes anyway.
    [[maybe_unused]] const ssize_t size = ::write(wakeup_.get(), &one, sizeof one);
}

std::size_t DirectoryWatch::systemLimit() {
    std::size_t limit = 0;
    std::ifstream(systemLimitFile) >> limit;
    return limit;
}

// Returns false when there is nothing to read.
bool DirectoryWatch::waitUntilReady(std::optional<std::chrono::milliseconds> timeout) const {
    std::array<pollfd, 2> descriptors{{{inotify_.get(), POLLIN, 0}, {wakeup_.get(), POLLIN, 0}}};
    constexpr std::int64_t longest = std::numeric_limits<int>::max();
    const int limit = timeout ? static_cast<int>(std::clamp<std::int64_t>(timeout->count(), 0, longest)) : -1;
    if (::poll(descriptors.data(), descriptors.size(), limit) < 0 && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "poll");
    if (descriptors[1].revents != 0) {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t size = ::read(wakeup_.get(), &count, sizeof count);
    }
    return descriptors[0].revents != 0;
}

void DirectoryWatch::readEvents(Gathering& gathering) {
    std::vector<char> buffer(eventBufferSize);
    for (int step = 0; step < mostReadingSteps; ++step) {
        const ssize_t size = ::read(inotify_.get(), buffer.data(), buffer.size());
        if (size <= 0)
            return;
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            at += sizeof event + event.len;
            takeEvent(event.wd, event.mask, gathering);
        }
    }
}

void DirectoryWatch::takeEvent(int number, std::uint32_t mask, Gathering& gathering) {
    if ((mask & IN_Q_OVERFLOW) != 0)
        return gathering.addOverflow();
    const auto watch = watches_.find(number);
    if (watch == watches_.end())
        return; // removed meanwhile
    std::vector<std::string> affected;
    for (const auto& path : watch->second)
        affected.push_back(path->first);
    for (const std::string& path : affected) {
        if ((mask & IN_MOVE_SELF) != 0)
            recheckFrom(path, gathering);
        else if ((mask & IN_IGNORED) != 0)
            recheck(path, gathering); // the system has dropped the watch: the folder is deleted or unmounted
        else if ((mask & IN_DELETE_SELF) == 0)
            gathering.add(path, Change::Changed);
    }
}

// A moved folder takes everything below it along, which the system does not report.
void DirectoryWatch::recheckFrom(const std::string& path, Gathering& gathering) {
    std::vector<std::string> affected;
    if (paths_.contains(path))
        affected.push_back(path);
    const std::string prefix = path + '/';
    for (auto at = paths_.lower_bound(prefix); at != paths_.end() && at->first.starts_with(prefix); ++at)
        affected.push_back(at->first);
    for (const std::string& each : affected)
        recheck(each, gathering);
}

void DirectoryWatch::recheck(const std::string& path, Gathering& gathering) {
    if (attach(path) == Outcome::Watching)
        return gathering.add(path, Change::Changed);
    gone_.insert(path);
    gathering.add(path, Change::Gone);
}

// Checked in the order of their names, so that a folder comes before its contents.
void DirectoryWatch::recheckGoneFolders(Gathering& gathering) {
    for (auto at = gone_.begin(); at != gone_.end();) {
        const std::string& path = *at;
        const bool isPossible = gathering.overflowed() || gathering.hasChanged(deleteLastPathComponent(path));
        if (isPossible && watches_.size() < mostWatches_ && attach(path) == Outcome::Watching) {
            gathering.add(path, Change::Changed);
            at = gone_.erase(at);
        } else {
            ++at;
        }
    }
}

// Watches what is at the path now and drops the watch on what was there before.
DirectoryWatch::Outcome DirectoryWatch::attach(const std::string& path) {
    const int number = inotify_ ? ::inotify_add_watch(inotify_.get(), path.c_str(), mask_) : -1;
    const int error = inotify_ ? errno : ENOSPC;
    if (const auto found = paths_.find(path); found != paths_.end()) {
        if (number == found->second)
            return Outcome::Watching;
        detach(found);
    }
    if (number < 0)
        return error == ENOSPC || error == ENOMEM ? Outcome::LimitReached : Outcome::Refused;
    watches_[number].push_back(paths_.emplace(path, number).first);
    return Outcome::Watching;
}

void DirectoryWatch::detach(Paths::iterator path) {
    const auto watch = watches_.find(path->second);
    std::erase(watch->second, path);
    if (watch->second.empty()) {
        ::inotify_rm_watch(inotify_.get(), watch->first); // fails when the kernel has already removed it
        watches_.erase(watch);
    }
    paths_.erase(path);
}

} // namespace kelvane
