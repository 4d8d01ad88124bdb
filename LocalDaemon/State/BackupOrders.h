#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

namespace kelvane {

// Orders to do something at once, counted: panes see it needed until a run is done that began after the last
// order. What changes meanwhile needs no other: on a machine at work that would have no end.
//
// Any thread. After each change `changed` is called without the lock, so that it may ask what holds now.
class BackupOrders {
public:
    explicit BackupOrders(std::function<void()> changed);

    void add();
    [[nodiscard]] std::uint64_t count() const;
    // A run that was begun after so many orders has done what they want.
    void noteDone(std::uint64_t count);
    // It has ended, well or not.
    void noteTried(std::uint64_t count);
    [[nodiscard]] bool areDone() const;
    [[nodiscard]] bool areTried() const;

private:
    void change(std::uint64_t BackupOrders::*which, std::uint64_t count);

    const std::function<void()> changed_;

    mutable std::mutex mutex_; // guards what follows
    std::uint64_t count_ = 0;
    std::uint64_t done_ = 0;
    std::uint64_t tried_ = 0;
};

} // namespace kelvane
