#include "PreferencePane/Link/BackupState.h"

#include "Support/Logging.h"
#include "Support/Preferences/DefaultsDB.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kelvane {
namespace {

constexpr std::chrono::milliseconds pollInterval(2000);

} // namespace

BackupState::BackupState(std::shared_ptr<MainLoop> mainLoop,
                         std::shared_ptr<NotificationCenter> notifications,
                         std::shared_ptr<const Bundle> bundle)
    : mainLoop_(std::move(mainLoop)), notifications_(std::move(notifications)), bundle_(std::move(bundle)) {}

BackupState::~BackupState() {
    connectionObserver_ = {};
    if (connection_)
        connection_->stop();
}

void BackupState::onBegin() {
    KelvaneCLog("BackupState:onBegin - opening connection");
    const std::weak_ptr<const void> presence = presence_;
    if (connection_)
        onEnd(); // otherwise the old controller and its connection would never be destroyed
    if (presence.expired() || connection_)
        return; // an observer of the end has destroyed this object or called `onBegin`
    connection_ = ConnectionController::create(mainLoop_, notifications_, bundle_, proxyDelegate_);
    if (disableConnectTimer_)
        connection_->disableConnectTimer();
    connectionObserver_ =
        notifications_->observe(KelvaneConnectionReadyChangedNotification, connection_.get(),
                                [this](const Notification&) { daemonConnectionChangedNotification(); });
    const auto connection = connection_; // an observer may call `onEnd` immediately
    connection->start();
}

// The controller stops while it is still observed, so that the tabs are notified of the end. It is detached
// from this object before that: an observer may call `onEnd` again, call `onBegin`, or destroy this object.
void BackupState::onEnd() {
    statusTimer_.stop();
    const auto observer = std::exchange(connectionObserver_, {});
    if (const auto connection = std::exchange(connection_, nullptr))
        connection->stop();
}

void BackupState::updateDaemonState() {
    if (!connected())
        return;
    const std::weak_ptr<const void> presence = presence_;
    const auto connection = connection_;
    Value state = query<"daemonState">();
    if (presence.expired() || connection_ != connection)
        return; // an observer of the loss has destroyed this object or called `onEnd`
    if (!state.isDictionary())
        state = {};
    extensions_ = state[statekey::extensions];
    // A missing answer differs from everything: it is always announced.
    if (!state.isAbsent() && state == daemonState_)
        return;
    daemonState_ = state;
    if (KelvaneLogEnabled())
        KelvaneCLog("daemonState: %@", daemonState_);
    notifications_->post(KelvaneBackupStateChangedNotification, this, std::move(state));
}

void BackupState::daemonConnectionChangedNotification() {
    const bool isConnected = connected();
    extensions_ = {};
    if (!isConnected)
        statusTimer_.stop();
    const std::weak_ptr<const void> presence = presence_;
    const auto connection = connection_;
    notifications_->post(KelvaneBackupStateConnectionChangedNotification, this);
    // An observer that asked the daemon may have found the link lost; another may have called `onBegin`.
    if (presence.expired() || connection_ != connection || !isConnected || !connected() ||
        !wantsStateChangedNotifications_)
        return;
    statusTimer_ = mainLoop_->schedule(pollInterval, MainLoop::Repeat::Always, [this] { onStatusTimer(); });
    updateDaemonState();
}

bool BackupState::hasExtension(std::string_view name) const {
    return std::ranges::any_of(extensions_.array(),
                               [&](const Value& each) { return each.stringValue() == name; });
}

bool BackupState::isQuotaLimited() const {
    const bool kept = DefaultsDB::intProperty(statekey::isQuotaLimited) == 1;
    const bool wasKept = DefaultsDB::lastReadOK();
    if (!connected() || !hasDaemonState())
        return wasKept && kept;
    const bool limited = flag(statekey::isQuotaLimited);
    if (!wasKept || kept != limited)
        DefaultsDB::setIntProperty(limited ? 1 : 0, statekey::isQuotaLimited);
    return limited;
}

std::optional<double> BackupState::verificationProgress() const {
    const double progress = daemonState_[statekey::verificationProgress].doubleValue();
    if (!has(statekey::verificationProgress) || std::isnan(progress))
        return std::nullopt;
    return std::clamp(progress, 0.0, 1.0);
}

std::string BackupState::serverURL() const {
    return proxyOrCacheString("serverURL", "lastServerURLStr");
}

Value BackupState::computerNumber() const {
    return proxyOrCacheInt("computerNumber", "lastComputerNumberInt");
}

std::string BackupState::skinId() const {
    return proxyOrCacheStringWithArg("stringValueForProfileKey:", "SkinId", "lastSkinIdStr");
}

std::string BackupState::userEmail() const {
    return proxyOrCacheString("userEmail", "lastAcctEmailStr");
}

void BackupState::setBackupControl(std::uint32_t flags, bool turnOff) {
    if (const auto daemon = proxy())
        daemon->invoke("setBackupControl:turnOff:", {flags, turnOff});
}

std::int32_t BackupState::intValueForProfileKey(const std::string& key) const {
    const auto daemon = proxy();
    return daemon ? daemon->invoke("intValueForProfileKey:", {key}).int32Value() : 0;
}

void BackupState::setValueForProfileKey(const std::string& key, std::uint32_t withUnsigned) {
    logNotice("%s: %@ = %u", "-[BackupState setValueForProfileKey:withUnsigned:]", key, withUnsigned);
    if (const auto daemon = proxy())
        daemon->invoke("setValueForProfileKey:withUnsigned:", {key, withUnsigned});
}

std::string BackupState::proxyOrCacheString(std::string_view selector, std::string_view forItem) const {
    return proxyOrCacheStringWithArg(selector, {}, forItem);
}

std::string BackupState::proxyOrCacheStringWithArg(std::string_view selector, const Value& arg,
                                                   std::string_view forItem) const {
    const auto daemon = proxy();
    if (!daemon)
        return DefaultsDB::stringProperty(forItem).value_or(std::string());
    const bool takesArgument = selector.find(':') != std::string_view::npos && !arg.isAbsent();
    bool isAnswered = false;
    std::string result =
        daemon->invoke(selector, takesArgument ? std::vector<Value>{arg} : std::vector<Value>{}, &isAnswered)
            .stringValue();
    if (!isAnswered) // lost during the call, which the main thread may not know yet
        return DefaultsDB::stringProperty(forItem).value_or(std::string());
    if (DefaultsDB::stringProperty(forItem) != result)
        DefaultsDB::setStringProperty(result, forItem);
    return result;
}

Value BackupState::proxyOrCacheInt(std::string_view selector, std::string_view forItem) const {
    const auto daemon = proxy();
    if (!daemon)
        return DefaultsDB::intProperty(forItem);
    bool isAnswered = false;
    Value result = daemon->invoke(selector, {}, &isAnswered);
    if (!isAnswered)
        return DefaultsDB::intProperty(forItem);
    if (!result.isNumber())
        result = 0;
    const std::int32_t kept = DefaultsDB::intProperty(forItem);
    if (!DefaultsDB::lastReadOK() || kept != result.int32Value())
        DefaultsDB::setIntProperty(result.int32Value(), forItem);
    return result;
}

} // namespace kelvane
