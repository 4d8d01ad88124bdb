// The entries for panes that support the extension "schedule".

#include "Common/StateKeys.h"
#include "LocalDaemon/State/DaemonState.h"
#include "LocalDaemon/State/PaneValues.h"
#include "Platform/Files/FileSystem.h"

namespace kelvane {

void DaemonState::setPlanSource(PlanSource source) {
    const std::scoped_lock guard(mutex_);
    planSource_ = std::move(source);
}

// A partial snapshot counts, since no other is made while a disk is not mounted or a file is unreadable.
void DaemonState::addSchedule(Dictionary& state) const {
    if (const Snapshot* const last = index_->newestSnapshot())
        state.set(statekey::lastBackupDate, dateFromTime(last->time));
    if (!destination_.empty())
        state.set(statekey::destination, destination_);
    if (isPaused())
        state.set(statekey::pausedUntil, dateFromTime(settings_.pausedUntil));
    if (std::string reason = reasonNotToBackUp(); !reason.empty()) {
        state.set(statekey::waitingFor, std::move(reason));
        return;
    }
    if (activity_.isRunning) {
        if (activity_.bytesPerSecond)
            state.set(statekey::bytesPerSecond, *activity_.bytesPerSecond);
        if (activity_.secondsLeft)
            state.set(statekey::secondsLeft, *activity_.secondsLeft);
        return;
    }
    const PlannedBackup planned = planSource_ ? planSource_() : PlannedBackup();
    if (planned.date)
        state.set(statekey::nextBackupDate, dateForPanes(*planned.date));
    if (!planned.waitingFor.empty())
        state.set(statekey::waitingFor, textForPanes(planned.waitingFor));
}

// The user's choices come first, in the order of the service states.
std::string DaemonState::reasonNotToBackUp() const {
    if (!settings_.enabled)
        return "Backup is disabled.";
    if (isPaused())
        return "Backup is paused.";
    if (settings_.recoverMode)
        return "Recover mode is on.";
    if (isOverQuota())
        return "The selected files exceed the quota.";
    if (!hasPlace())
        return "No valid destination is configured.";
    return selectsAnything(*rules_) ? std::string() : nothingIsSelected;
}

} // namespace kelvane
