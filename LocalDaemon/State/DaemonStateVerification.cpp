// The entries for panes that support extensions: standing alerts and verification.

#include "Common/ExtensionProtocol.h"
#include "Common/StateKeys.h"
#include "LocalDaemon/State/DaemonState.h"
#include "LocalDaemon/State/PaneValues.h"

namespace kelvane {

void DaemonState::setVerification(std::optional<std::chrono::system_clock::time_point> date,
                                  const std::string& outcome) {
    const std::scoped_lock guard(mutex_);
    verification_.date = date;
    verification_.outcome = textForPanes(outcome);
}

void DaemonState::setVerificationProgress(std::optional<double> progress) {
    const std::scoped_lock guard(mutex_);
    verification_.progress = progress;
}

void DaemonState::setDamage(bool isAnyKnown, std::uint64_t files) {
    const std::scoped_lock guard(mutex_);
    verification_.isDamageKnown = isAnyKnown;
    verification_.damagedFiles = files;
    announce();
}

void DaemonState::addExtensions(Dictionary& state) const {
    state.set(statekey::extensions, Array{extension::alerts, extension::schedule, extension::verify});
    addSchedule(state);
    state.set(statekey::alerts, alerts_->dictionaries());
    state.set(statekey::damagedFileCount, verification_.damagedFiles);
    state.set(statekey::isBackupDamaged, verification_.isDamageKnown);
    if (verification_.date)
        state.set(statekey::lastVerifiedDate, dateForPanes(*verification_.date));
    if (!verification_.outcome.empty())
        state.set(statekey::lastVerification, verification_.outcome);
    if (verification_.progress || !verificationOrders_.areTried())
        state.set(statekey::verificationProgress, verification_.progress.value_or(0));
}

} // namespace kelvane
