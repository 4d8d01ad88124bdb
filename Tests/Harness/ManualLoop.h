#pragma once

#include "Foundation/MainLoop.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

namespace kelvane::tests {

// A main loop whose clock moves only by `advance`. Any thread may post; everything runs on the test's thread.
class ManualLoop : public MainLoop {
public:
    void post(Task task) override {
        const std::scoped_lock guard(mutex_);
        tasks_.push_back(std::move(task));
        posted_.notify_all();
    }

    Timer schedule(std::chrono::milliseconds interval, Repeat repeat, Task task) override {
        auto entry = std::make_shared<Entry>(Entry{now_ + interval, interval, repeat, std::move(task)});
        timers_.push_back(entry);
        return Timer(entry);
    }

    [[nodiscard]] std::size_t posted() {
        const std::scoped_lock guard(mutex_);
        return tasks_.size();
    }

    // Runs the posted tasks, and those that they post. Returns how many ran.
    int runPosted() {
        int count = 0;
        while (Task task = takePosted()) {
            task();
            ++count;
        }
        return count;
    }

    // Runs posted tasks as they arrive until `condition` holds; returns false when it does not within `limit`
    // of real time.
    template <class Condition>
    [[nodiscard]] bool runUntil(Condition condition, std::chrono::seconds limit = std::chrono::seconds(10)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            if (runPosted() == 0)
                waitForPost();
        }
        return true;
    }

    // Moves the clock and runs due timers in the order of their times, with posted tasks before and in
    // between.
    void advance(std::chrono::milliseconds duration) {
        const auto end = now_ + duration;
        runPosted();
        while (const std::shared_ptr<Entry> next = nextDue(end)) {
            now_ = std::max(now_, next->due);
            next->due = next->repeat == Repeat::Always ? now_ + next->interval : never;
            next->task();
            runPosted();
        }
        now_ = end;
    }

    [[nodiscard]] int runningTimers() {
        int count = 0;
        for (const auto& timer : timers_)
            if (const auto entry = timer.lock(); entry && entry->due != never)
                ++count;
        return count;
    }

private:
    static constexpr std::chrono::milliseconds never = std::chrono::milliseconds::max();

    struct Entry {
        std::chrono::milliseconds due;
        std::chrono::milliseconds interval;
        Repeat repeat;
        Task task;
    };

    Task takePosted() {
        const std::scoped_lock guard(mutex_);
        if (tasks_.empty())
            return {};
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        return task;
    }

    void waitForPost() {
        std::unique_lock guard(mutex_);
        // Short, because the condition may become true without a post.
        posted_.wait_for(guard, std::chrono::milliseconds(5), [this] { return !tasks_.empty(); });
    }

    std::shared_ptr<Entry> nextDue(std::chrono::milliseconds end) {
        std::erase_if(timers_, [](const auto& timer) { return timer.expired(); });
        std::shared_ptr<Entry> earliest;
        for (const auto& timer : timers_)
            if (auto entry = timer.lock();
                entry && entry->due <= end && (!earliest || entry->due < earliest->due))
                earliest = std::move(entry);
        return earliest;
    }

    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<Task> tasks_;
    std::vector<std::weak_ptr<Entry>> timers_;
    std::chrono::milliseconds now_{0};
};

} // namespace kelvane::tests
