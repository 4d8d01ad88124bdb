// The service state that panes are told, and its conditions: the pause and the quota.

#include "LocalDaemon/State/DaemonState.h"

namespace kelvane {
namespace {

constexpr std::int64_t secondsPerMinute = 60;
constexpr std::uint64_t bytesPerMegabyte = std::uint64_t{1} << 20U;
constexpr const char* backupIsDamaged = "Something in the backup is damaged.";

} // namespace

// A pause that was set while the clock was ahead would last longer by the difference, so it ends when the
// clock is set back before its start.
bool DaemonState::isPaused() const {
    const std::int64_t time = now();
    return time < settings_.pausedUntil && time >= settings_.pausedSince - secondsPerMinute;
}

std::uint32_t DaemonState::pausedMinutes() const {
    const std::scoped_lock guard(mutex_);
    const std::int64_t left = isPaused() ? settings_.pausedUntil - now() : 0;
    return static_cast<std::uint32_t>((left + secondsPerMinute - 1) / secondsPerMinute);
}

void DaemonState::setPausedMinutes(std::uint32_t minutes) {
    changeSettings([this, minutes](Settings& settings) {
        // 0 without a pause, so that there is nothing to save when none is ended.
        settings.pausedSince = minutes == 0 ? 0 : now();
        settings.pausedUntil = minutes == 0 ? 0 : now() + minutes * secondsPerMinute;
    });
}

std::uint32_t DaemonState::serviceState() const {
    const std::scoped_lock guard(mutex_);
    return currentServiceState();
}

void DaemonState::overrideServiceState(std::uint32_t code) {
    const std::scoped_lock guard(mutex_);
    override_.reset();
    if (code != 0)
        override_ = Override{code, ownServiceState()};
    announce();
}

void DaemonState::setOverQuotaForTesting(std::optional<bool> overQuota) {
    const std::scoped_lock guard(mutex_);
    overQuotaForTesting_ = overQuota;
    announce();
}

bool DaemonState::isOverQuota() const {
    if (overQuotaForTesting_)
        return *overQuotaForTesting_;
    // Old versions do not count, since retention removes them.
    return configuration_.quotaMB > 0 && currentlyFound().bytes > configuration_.quotaMB * bytesPerMegabyte;
}

std::uint32_t DaemonState::ownServiceState() const {
    ServiceConditions conditions;
    conditions.isEnabled = settings_.enabled;
    conditions.isPaused = isPaused();
    conditions.isRecovering = settings_.recoverMode;
    conditions.isOverQuota = isOverQuota();
    if (!hasPlace())
        conditions.trouble = ServiceState::BadConfiguration;
    else if (backupOrders_.areTried())
        conditions.trouble = activity_.trouble;
    conditions.isNothingSelected = !selectsAnything(*rules_);
    conditions.isBackingUp = activity_.isRunning;
    conditions.isInitialBackup = activity_.isInitial;
    conditions.isScanning = isLooking();
    conditions.hasPendingFiles = isPending();
    conditions.isDamaged = verification_.isDamageKnown;
    return static_cast<std::uint32_t>(serviceStateFor(conditions));
}

std::string DaemonState::currentStatusText(std::uint32_t service) const {
    const bool isOwn = service == static_cast<std::uint32_t>(ServiceState::OperationsMessage) && !override_;
    if (!isOwn)
        return serviceStateText(service);
    return selectsAnything(*rules_) ? backupIsDamaged : nothingIsSelected;
}

std::uint32_t DaemonState::currentServiceState() const {
    const std::uint32_t own = ownServiceState();
    return override_ && override_->inFrontOf == own ? override_->code : own;
}

} // namespace kelvane
