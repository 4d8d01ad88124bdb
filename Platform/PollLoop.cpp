#include "Platform/PollLoop.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <system_error>

namespace kelvane {
namespace {

// Longer than any process lives, and far from overflowing the clock.
constexpr std::chrono::milliseconds longestInterval = std::chrono::hours(24 * 365);

int newEventDescriptor() {
    const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return descriptor;
}

void drain(int eventDescriptor) {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = ::read(eventDescriptor, &count, sizeof count);
}

template <class Entry>
void forgetExpired(std::vector<std::weak_ptr<Entry>>& entries) {
    std::erase_if(entries, [](const auto& entry) { return entry.expired(); });
}

} // namespace

struct PollLoop::TimerEntry {
    static constexpr Clock::time_point never = Clock::time_point::max();

    // Counts the next time from the previous one, so that the timer does not drift; if that is past already,
    // from now.
    void moveOn(Clock::time_point now) {
        if (repeat == Repeat::Once) {
            due = never;
        } else {
            due = due + interval > now ? due + interval : now + interval;
        }
    }

    Clock::time_point due;
    std::chrono::milliseconds interval;
    Repeat repeat;
    Task task;
};

struct PollLoop::WatchEntry {
    int descriptor;
    short pollEvents;
    Task task;
};

PollLoop::PollLoop() : wakeup_(newEventDescriptor()) {}

PollLoop::~PollLoop() {
    // One by one: the destructor of a dropped task may post another.
    while (takePosted())
        ;
}

int PollLoop::run() {
    while (!isEnding()) {
        serveDescriptors();
        serveTimers();
        servePosted();
    }
    const std::scoped_lock guard(mutex_);
    return std::exchange(status_, std::nullopt).value_or(0);
}

void PollLoop::quit(int status) {
    {
        const std::scoped_lock guard(mutex_);
        if (!status_)
            status_ = status;
    }
    wake();
}

void PollLoop::post(Task task) {
    bool wasEmpty = false;
    {
        const std::scoped_lock guard(mutex_);
        wasEmpty = inbox_.empty();
        inbox_.push_back(std::move(task));
    }
    if (wasEmpty)
        wake();
}

Timer PollLoop::schedule(std::chrono::milliseconds interval, Repeat repeat, Task task) {
    interval = std::clamp(interval, std::chrono::milliseconds(0), longestInterval);
    auto entry = std::make_shared<TimerEntry>(TimerEntry{
        .due = Clock::now() + interval, .interval = interval, .repeat = repeat, .task = std::move(task)});
    forgetExpired(timers_);
    timers_.push_back(entry);
    return Timer(std::move(entry));
}

PollLoop::Watch PollLoop::watchDescriptor(int descriptor, short pollEvents, Task task) {
    auto entry = std::make_shared<WatchEntry>(WatchEntry{descriptor, pollEvents, std::move(task)});
    forgetExpired(watches_);
    watches_.push_back(entry);
    return Watch(std::move(entry));
}

void PollLoop::serveDescriptors() {
    forgetExpired(watches_);
    const auto watches = watches_;
    std::vector<pollfd> descriptors{{wakeup_.get(), POLLIN, 0}};
    for (const auto& weak : watches) {
        if (const auto watch = weak.lock())
            descriptors.push_back({watch->descriptor, watch->pollEvents, 0});
        else
            descriptors.push_back({-1, 0, 0}); // skipped, so that the others keep their places
    }
    if (::poll(descriptors.data(), descriptors.size(), pollTimeout()) < 0) {
        if (errno == EINTR)
            return;
        throw std::system_error(errno, std::generic_category(), "poll");
    }
    if (descriptors.front().revents != 0)
        drain(wakeup_.get());
    for (std::size_t i = 0; i < watches.size() && !isEnding(); ++i) {
        const short events = descriptors[i + 1].revents;
        const auto watch = events != 0 ? watches[i].lock() : nullptr;
        if (!watch)
            continue;
        if ((events & POLLNVAL) != 0) {
            watch->descriptor = -1; // poll skips it from now on
            throw std::logic_error("a watched descriptor was closed before its watch");
        }
        watch->task();
    }
}

void PollLoop::serveTimers() {
    const auto now = Clock::now();
    for (const auto& weak : dueTimers(now)) {
        if (isEnding())
            return;
        // Keeps the timer alive while it runs: a task may drop its own token.
        if (const auto timer = weak.lock()) {
            timer->moveOn(now);
            timer->task();
        }
    }
}

void PollLoop::servePosted() {
    std::size_t count = 0;
    {
        const std::scoped_lock guard(mutex_);
        count = inbox_.size();
    }
    for (; count > 0 && !isEnding(); --count) {
        if (const Task task = takePosted())
            task();
    }
}

int PollLoop::pollTimeout() {
    {
        const std::scoped_lock guard(mutex_);
        if (status_ || !inbox_.empty())
            return 0;
    }
    auto due = TimerEntry::never;
    for (const auto& weak : timers_) {
        if (const auto timer = weak.lock())
            due = std::min(due, timer->due);
    }
    if (due == TimerEntry::never)
        return -1;
    // Rounded up: otherwise the last millisecond before a timer would be spent spinning.
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(wait, 0, std::numeric_limits<int>::max()));
}

std::vector<std::weak_ptr<PollLoop::TimerEntry>> PollLoop::dueTimers(Clock::time_point now) {
    forgetExpired(timers_);
    std::vector<std::shared_ptr<TimerEntry>> due;
    for (const auto& weak : timers_) {
        if (auto timer = weak.lock(); timer && timer->due <= now)
            due.push_back(std::move(timer));
    }
    std::stable_sort(due.begin(), due.end(),
                     [](const auto& left, const auto& right) { return left->due < right->due; });
    return {due.begin(), due.end()};
}

MainLoop::Task PollLoop::takePosted() {
    const std::scoped_lock guard(mutex_);
    if (inbox_.empty())
        return {};
    Task task = std::move(inbox_.front());
    inbox_.pop_front();
    return task;
}

bool PollLoop::isEnding() {
    const std::scoped_lock guard(mutex_);
    return status_.has_value();
}

void PollLoop::wake() {
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then the loop is awake anyway.
    [[maybe_unused]] const ssize_t size = ::write(wakeup_.get(), &one, sizeof one);
}

} // namespace kelvane
