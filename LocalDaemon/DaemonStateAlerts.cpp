// What only panes that know of extensions are told: the alerts that stand, and the verification.

#include "Common/ExtensionProtocol.h"
#include "Common/StandingAlert.h"
#include "Common/StateKeys.h"
#include "LocalDaemon/DaemonState.h"

#include <algorithm>

namespace kelvane {
namespace {

constexpr std::chrono::seconds referenceAfterEpoch(978307200); // 2001, from which dates on the link count

Date dateOf(std::chrono::system_clock::time_point time) {
    return {std::chrono::duration<double>(time.time_since_epoch() - referenceAfterEpoch).count()};
}

} // namespace

void DaemonState::raiseAlert(const Alert& alert) {
    const auto since = clock_();
    const std::scoped_lock guard(mutex_);
    const auto [standing, isNew] = alerts_.try_emplace(alert.kind, StandingSince{alert, since});
    if (!isNew && standing->second.alert == alert)
        return;
    standing->second.alert = alert;
    if (const auto observer = observer_.lock())
        observer->alertRaised(alertString(alert));
}

void DaemonState::withdrawAlert(const std::string& kind) {
    const std::scoped_lock guard(mutex_);
    alerts_.erase(kind);
}

std::optional<Alert> DaemonState::standingAlert(const std::string& kind) const {
    const std::scoped_lock guard(mutex_);
    const auto standing = alerts_.find(kind);
    return standing == alerts_.end() ? std::nullopt : std::optional(standing->second.alert);
}

void DaemonState::addAlertHandler(CallbackQueue& pane) const {
    const std::scoped_lock guard(mutex_);
    pane.setAlertHandler(true);
    for (const auto& [kind, standing] : alerts_)
        pane.alertRaised(alertString(standing.alert));
}

void DaemonState::setVerification(std::optional<std::chrono::system_clock::time_point> date,
                                  const std::string& outcome) {
    const std::scoped_lock guard(mutex_);
    verification_.date = date;
    verification_.outcome = outcome;
}

void DaemonState::setVerificationProgress(std::optional<double> progress) {
    const std::scoped_lock guard(mutex_);
    verification_.progress = progress;
}

void DaemonState::setDamagedFileCount(std::uint64_t count) {
    const std::scoped_lock guard(mutex_);
    verification_.damagedFiles = count;
}

void DaemonState::addExtensions(Dictionary& state) const {
    state.set(statekey::extensions, Array{extension::alerts, extension::verify});
    state.set(statekey::alerts, alertDictionaries());
    state.set(statekey::damagedFileCount, verification_.damagedFiles);
    if (verification_.date)
        state.set(statekey::lastVerifiedDate, dateOf(*verification_.date));
    if (!verification_.outcome.empty())
        state.set(statekey::lastVerification, verification_.outcome);
    if (verification_.progress)
        state.set(statekey::verificationProgress, *verification_.progress);
}

Array DaemonState::alertDictionaries() const {
    std::vector<const StandingSince*> worstFirst;
    for (const auto& [kind, standing] : alerts_)
        worstFirst.push_back(&standing);
    std::ranges::stable_sort(worstFirst, [](const StandingSince* left, const StandingSince* right) {
        const int difference = severityRank(right->alert.severity) - severityRank(left->alert.severity);
        return difference != 0 ? difference < 0 : left->since > right->since;
    });
    Array dictionaries;
    for (const StandingSince* const each : worstFirst) {
        const Alert& alert = each->alert;
        dictionaries.push_back(dictionaryOf(
            {alert.kind, alert.severity, alert.title, alert.body, dateOf(each->since), alert.actions}));
    }
    return dictionaries;
}

} // namespace kelvane
