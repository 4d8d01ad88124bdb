#include "LocalDaemon/State/BackupOrders.h"

#include <utility>

namespace kelvane {

BackupOrders::BackupOrders(std::function<void()> changed) : changed_(std::move(changed)) {}

void BackupOrders::add() {
    {
        const std::scoped_lock guard(mutex_);
        ++count_;
    }
    changed_();
}

std::uint64_t BackupOrders::count() const {
    const std::scoped_lock guard(mutex_);
    return count_;
}

void BackupOrders::noteDone(std::uint64_t count) {
    change(&BackupOrders::done_, count);
}

void BackupOrders::noteTried(std::uint64_t count) {
    change(&BackupOrders::tried_, count);
}

bool BackupOrders::areDone() const {
    const std::scoped_lock guard(mutex_);
    return done_ == count_;
}

bool BackupOrders::areTried() const {
    const std::scoped_lock guard(mutex_);
    return tried_ == count_;
}

void BackupOrders::change(std::uint64_t BackupOrders::*which, std::uint64_t count) {
    {
        const std::scoped_lock guard(mutex_);
        this->*which = count;
    }
    changed_();
}

} // namespace kelvane
