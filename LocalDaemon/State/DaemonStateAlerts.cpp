// What only panes that know of extensions are told: the alerts that stand, and the verification.

#include "Common/ExtensionProtocol.h"
#include "Common/StandingAlert.h"
#include "Common/StateKeys.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/State/DaemonState.h"
#include "Support/Logging.h"

#include <algorithm>

namespace kelvane {
namespace {

constexpr std::chrono::seconds referenceAfterEpoch(978307200); // 2001, from which dates on the link count

Date dateOf(std::chrono::system_clock::time_point time) {
    return {std::chrono::duration<double>(time.time_since_epoch() - referenceAfterEpoch).count()};
}

// The link refuses a dictionary as a whole for one text that is not UTF-8.
std::string inUtf8(const std::string& text) {
    if (isUtf8(text))
        return text;
    KelvaneSystemLog("A text is not UTF-8, and is told with replacements: %@", textFromPath(text));
    return textFromPath(text);
}

} // namespace

void DaemonState::raiseAlert(const Alert& raised) {
    Alert alert = raised;
    for (std::string* const text : {&alert.kind, &alert.title, &alert.body})
        *text = inUtf8(*text);
    const auto since = clock_();
    const std::scoped_lock guard(mutex_);
    const auto [standing, isNew] = alerts_.try_emplace(alert.kind, StandingSince{alert, since});
    if (!isNew && standing->second.alert == alert)
        return;
    standing->second.alert = alert;
    tellPanes([text = alertString(alert)](DaemonObserver& pane) { pane.alertRaised(text); });
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

void DaemonState::addAlertHandler(DaemonObserver& pane) const {
    const std::scoped_lock guard(mutex_);
    pane.setAlertHandler(true);
    for (const auto& [kind, standing] : alerts_)
        pane.alertRaised(alertString(standing.alert));
}

void DaemonState::setVerification(std::optional<std::chrono::system_clock::time_point> date,
                                  const std::string& outcome) {
    const std::scoped_lock guard(mutex_);
    verification_.date = date;
    verification_.outcome = inUtf8(outcome);
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

void DaemonState::orderVerification() {
    const std::scoped_lock guard(mutex_);
    ++verification_.orders;
}

std::uint64_t DaemonState::verificationOrders() const {
    const std::scoped_lock guard(mutex_);
    return verification_.orders;
}

bool DaemonState::isVerificationOrdered() const {
    const std::scoped_lock guard(mutex_);
    return verification_.orders != verification_.ordersDone;
}

void DaemonState::takeVerificationsDone(std::uint64_t orders) {
    const std::scoped_lock guard(mutex_);
    verification_.ordersDone = orders;
}

void DaemonState::addExtensions(Dictionary& state) const {
    state.set(statekey::extensions, Array{extension::alerts, extension::verify});
    state.set(statekey::alerts, alertDictionaries());
    state.set(statekey::damagedFileCount, verification_.damagedFiles);
    state.set(statekey::isBackupDamaged, verification_.isDamageKnown);
    if (verification_.date)
        state.set(statekey::lastVerifiedDate, dateOf(*verification_.date));
    if (!verification_.outcome.empty())
        state.set(statekey::lastVerification, verification_.outcome);
    if (verification_.progress || verification_.orders != verification_.ordersDone)
        state.set(statekey::verificationProgress, verification_.progress.value_or(0));
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
