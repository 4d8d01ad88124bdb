#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <poll.h>

namespace kelvane::tests {

inline constexpr auto waitTimeout = std::chrono::seconds(10);

// For conditions without an event, such as the end of a thread; returns false when the condition does not
// hold within `limit`.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition, std::chrono::milliseconds limit = waitTimeout) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        ::poll(nullptr, 0, 1);
    }
    return true;
}

// Events from other threads, in order.
template <class Item>
class Recorded {
public:
    void add(Item item) {
        const std::scoped_lock guard(mutex_);
        items_.push_back(std::move(item));
        added_.notify_all();
    }
    // Waits for the first event and removes it; none on a timeout.
    [[nodiscard]] std::optional<Item> next() {
        std::unique_lock guard(mutex_);
        if (!added_.wait_for(guard, waitTimeout, [this] { return !items_.empty(); }))
            return std::nullopt;
        std::optional<Item> item(std::move(items_.front()));
        items_.pop_front();
        return item;
    }
    [[nodiscard]] std::size_t count() const {
        const std::scoped_lock guard(mutex_);
        return items_.size();
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable added_;
    std::deque<Item> items_;
};

} // namespace kelvane::tests
