#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

namespace kelvane {

// Counts the requests to start something at once. Panes show it as requested until a run is complete
// that began after the last request. Changes in the meantime need no further run, which on a busy
// machine would never end.
//
// Any thread. `changed` is called after each change without the lock, so that it may query the current
// state.
class BackupOrders {
public:
    explicit BackupOrders(std::function<void()> changed);

    void add();
    [[nodiscard]] std::uint64_t count() const;
    // Records that a run has succeeded that started after the first `count` requests.
    void noteDone(std::uint64_t count);
    // Records that such a run has ended, successfully or not.
    void noteTried(std::uint64_t count);
    [[nodiscard]] bool areDone() const;
    [[nodiscard]] bool areTried() const;

private:
    void change(std::uint64_t BackupOrders::*which, std::uint64_t count);

    const std::function<void()> changed_;

    mutable std::mutex mutex_; // Guards the members below.
    std::uint64_t count_ = 0;
    std::uint64_t done_ = 0;
    std::uint64_t tried_ = 0;
};

} // namespace kelvane
