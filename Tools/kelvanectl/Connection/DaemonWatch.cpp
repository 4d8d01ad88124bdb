#include "Tools/kelvanectl/Connection/DaemonWatch.h"

#include "Common/StateKeys.h"
#include "Support/Json/JsonPropertyList.h"
#include "Support/ServiceStates.h"
#include "Tools/kelvanectl/Output/DateText.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

using Json = nlohmann::ordered_json;

std::string compact(const Value& value) {
    std::string text = jsonText(jsonFromPropertyList(value), true);
    text.pop_back(); // The line end.
    return text;
}

// Returns the keys whose values have changed, including removed ones.
std::vector<std::string> changedKeys(const Dictionary& before, const Dictionary& now) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : now)
        if (const Value* old = before.find(key); !old || !(*old == value))
            keys.push_back(key);
    for (const auto& [key, value] : before)
        if (!now.contains(key))
            keys.push_back(key);
    return keys;
}

std::string entryText(const Dictionary& state, const std::string& key, const Bundle& bundle) {
    const Value* value = state.find(key);
    if (!value)
        return key + " removed";
    const std::string name =
        key == statekey::serviceState
            ? stringForKelvaneServiceState(static_cast<ServiceState>(value->uint32Value()), bundle)
            : std::string();
    const bool isDate = value->kind() == Value::Kind::Date;
    return key + ' ' + (isDate ? printable(dateText(value->dateValue())) : compact(*value)) +
           (name.empty() ? "" : " (" + name + ")");
}

} // namespace

DaemonWatch::DaemonWatch(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<const Bundle> bundle,
                         EventWriter& events, LinkBreaker& breaker)
    : bundle_(std::move(bundle)),
      events_(events),
      breaker_(breaker),
      state_(std::move(mainLoop), notifications_, bundle_) {}

void DaemonWatch::begin() {
    connectionObserver_ = notifications_->observe(KelvaneBackupStateConnectionChangedNotification, &state_,
                                                  [this](const Notification&) { connectionChanged(); });
    stateObserver_ =
        notifications_->observe(KelvaneBackupStateChangedNotification, &state_,
                                [this](const Notification& change) { stateChanged(change.userInfo); });
    state_.setProxyDelegate(weak_from_this());
    state_.setWantsStateChangedNotifications();
    state_.onBegin();
}

void DaemonWatch::end() {
    connectionObserver_ = {};
    stateObserver_ = {};
    state_.onEnd();
}

void DaemonWatch::reconnect(const std::string& reason) {
    lossReason_ = reason;
    state_.onEnd();
    lossReason_.clear();
    state_.onBegin();
}

// The notification comes for every close, also for several in a row; only changes are written.
void DaemonWatch::connectionChanged() {
    if (state_.connected() == connected_)
        return;
    connected_ = !connected_;
    if (!connected_) {
        const Json reason = lossReason_.empty() ? Json::object() : Json::object({{"reason", lossReason_}});
        events_.write("disconnected", lossReason_, reason);
        return;
    }
    wasEverConnected_ = true;
    breaker_.setProxy(state_.proxy());
    const std::string& path = bundle_->information("DaemonPath").stringValue();
    events_.write("connected", path, Json::object({{"daemon", path}}));
    // The daemon sends these two kinds of callbacks only after these calls.
    state_.setStateHandler();
    state_.setAlertHandler();
}

// A missing answer is not written, but makes every key of the next state count as changed.
void DaemonWatch::stateChanged(const Value& state) {
    const Value before = std::exchange(lastState_, state);
    if (!state.isDictionary())
        return;
    const std::vector<std::string> keys = changedKeys(before.dictionary(), state.dictionary());
    std::string detail;
    for (const std::string& key : keys)
        detail += (detail.empty() ? "" : ", ") + entryText(state.dictionary(), key, *bundle_);
    events_.write("state", detail, Json::object({{"changed", keys}, {"state", jsonFromPropertyList(state)}}));
}

void DaemonWatch::called(std::string_view selector, const Value& argument) {
    events_.write(selector, compact(argument),
                  Json::object({{"arguments", Json::array({jsonFromPropertyList(argument)})}}));
}

} // namespace kelvane::ctl
