// Backups that somebody has ordered, and what the last one could not read.

#include "LocalDaemon/State/DaemonState.h"

namespace kelvane {

void DaemonState::orderBackup() {
    const std::scoped_lock guard(mutex_);
    ++backupOrders_;
    announce();
}

std::uint64_t DaemonState::backupOrders() const {
    const std::scoped_lock guard(mutex_);
    return backupOrders_;
}

void DaemonState::takeOrdersDone(std::uint64_t orders) {
    const std::scoped_lock guard(mutex_);
    ordersDone_ = orders;
}

void DaemonState::takeOrdersTried(std::uint64_t orders) {
    const std::scoped_lock guard(mutex_);
    ordersTried_ = orders;
    announce();
}

std::vector<std::string> DaemonState::lossyLinks() const {
    const std::scoped_lock guard(mutex_);
    return scan_ ? scan_->lossyLinks : std::vector<std::string>();
}

void DaemonState::noteUnread(std::optional<std::uint64_t> changes) {
    const std::scoped_lock guard(mutex_);
    unreadAt_ = changes;
}

} // namespace kelvane
