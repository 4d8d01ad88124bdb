#include "LocalDaemon/State/Alerts.h"

#include "Common/StandingAlert.h"
#include "LocalDaemon/State/PaneValues.h"

#include <algorithm>
#include <utility>

namespace kelvane {

Alerts::Alerts(std::shared_ptr<const DaemonObservers> panes, Clock clock)
    : panes_(std::move(panes)), clock_(std::move(clock)) {}

void Alerts::raise(const Alert& raised) {
    Alert alert = raised;
    for (std::string* const text : {&alert.kind, &alert.title, &alert.body})
        *text = textForPanes(*text);
    const auto since = clock_();
    const std::scoped_lock guard(mutex_);
    const auto [standing, isNew] = standing_.try_emplace(alert.kind, Standing{alert, since});
    if (!isNew && standing->second.alert == alert)
        return;
    standing->second.alert = alert;
    panes_->tell([text = alertString(alert)](DaemonObserver& pane) { pane.alertRaised(text); });
}

void Alerts::withdraw(const std::string& kind) {
    const std::scoped_lock guard(mutex_);
    standing_.erase(kind);
}

void Alerts::replace(std::string_view beginningOfKinds, const std::vector<Alert>& alerts) {
    {
        const std::scoped_lock guard(mutex_);
        std::erase_if(standing_, [&](const auto& each) {
            return each.first.starts_with(beginningOfKinds) &&
                   std::ranges::find(alerts, each.first, &Alert::kind) == alerts.end();
        });
    }
    for (const Alert& alert : alerts)
        raise(alert);
}

std::optional<Alert> Alerts::standing(const std::string& kind) const {
    const std::scoped_lock guard(mutex_);
    const auto standing = standing_.find(kind);
    return standing == standing_.end() ? std::nullopt : std::optional(standing->second.alert);
}

void Alerts::addHandler(DaemonObserver& pane) const {
    const std::scoped_lock guard(mutex_);
    pane.setAlertHandler(true);
    for (const auto& [kind, standing] : standing_)
        pane.alertRaised(alertString(standing.alert));
}

Array Alerts::dictionaries() const {
    const std::scoped_lock guard(mutex_);
    std::vector<const Standing*> worstFirst;
    for (const auto& [kind, standing] : standing_)
        worstFirst.push_back(&standing);
    std::ranges::stable_sort(worstFirst, [](const Standing* left, const Standing* right) {
        const int difference = severityRank(right->alert.severity) - severityRank(left->alert.severity);
        return difference != 0 ? difference < 0 : left->since > right->since;
    });
    Array dictionaries;
    for (const Standing* const each : worstFirst) {
        const Alert& alert = each->alert;
        dictionaries.push_back(dictionaryOf({.id = alert.kind,
                                             .severity = alert.severity,
                                             .title = alert.title,
                                             .text = alert.body,
                                             .since = dateForPanes(each->since),
                                             .actions = alert.actions}));
    }
    return dictionaries;
}

} // namespace kelvane
