// The alerts that stand.

#include "Common/StandingAlert.h"
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
