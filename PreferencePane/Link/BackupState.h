#pragma once

#include "Common/StandingAlert.h"
#include "Common/StateKeys.h"
#include "PreferencePane/Link/ConnectionController.h"
#include "Support/ServiceStates.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// Both are posted by the BackupState; the second carries the new state dictionary, or nothing when the daemon
// gave none.
inline constexpr std::string_view KelvaneBackupStateConnectionChangedNotification =
    "KelvaneBackupStateConnectionChangedNotification";
inline constexpr std::string_view KelvaneBackupStateChangedNotification =
    "KelvaneBackupStateChangedNotification";

// The facade over the daemon: owns the connection, polls the state dictionary every 2 s while connected and
// announces each change, forwards commands and queries, and stores a few account values for use without a
// daemon. The getters below are grouped by the source of their values.
//
// Main thread only. A query blocks until the daemon answers, and the link may be lost meanwhile; when a
// failed write reveals that, the notification is delivered before the query returns. An observer may call
// `onEnd` or destroy this object; the interrupted operation then returns. The proxy delegate is not owned.
class BackupState {
public:
    BackupState(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<NotificationCenter> notifications,
                std::shared_ptr<const Bundle> bundle);
    // Closes the connection without a notification.
    ~BackupState();
    BackupState(const BackupState&) = delete;
    BackupState& operator=(const BackupState&) = delete;

    void setBundle(std::shared_ptr<const Bundle> bundle) { bundle_ = std::move(bundle); }
    void setProxyDelegate(std::weak_ptr<InvocationTarget> delegate) { proxyDelegate_ = std::move(delegate); }
    void setWantsStateChangedNotifications() { wantsStateChangedNotifications_ = true; }
    void disableConnectTimer() { disableConnectTimer_ = true; }

    void onBegin();
    void onEnd();

    [[nodiscard]] bool connected() const { return connection_ && connection_->connected(); }
    [[nodiscard]] bool daemonReady() const { return connected(); }
    // Null while disconnected.
    [[nodiscard]] std::shared_ptr<KelvaneProxy> proxy() const {
        return connected() ? connection_->proxy() : nullptr;
    }
    // Asks the daemon for its state dictionary and announces it if it has changed.
    void updateDaemonState();

    // Whether the daemon has answered with its state: false before the first answer, and after one that was
    // lost.
    [[nodiscard]] bool hasDaemonState() const { return !daemonState_.isAbsent(); }

    // These return the values of the last dictionary received, even while disconnected. A missing key reads
    // as 0, false or absent.
    [[nodiscard]] std::uint32_t backedUpFileCount() const { return number(statekey::backedUpFileCount); }
    [[nodiscard]] bool backedUpFileCountAvailable() const { return has(statekey::backedUpFileCount); }
    [[nodiscard]] std::uint64_t backedupFileSize() const { return number64(statekey::backedupFileSize); }
    [[nodiscard]] bool backedupFileSizeAvailable() const { return has(statekey::backedupFileSize); }
    [[nodiscard]] std::uint32_t pendingFileCount() const { return number(statekey::pendingFileCount); }
    [[nodiscard]] bool pendingFileCountAvailable() const { return has(statekey::pendingFileCount); }
    [[nodiscard]] std::uint64_t pendingFileSize() const { return number64(statekey::pendingFileSize); }
    [[nodiscard]] bool pendingFileSizeAvailable() const { return has(statekey::pendingFileSize); }
    [[nodiscard]] Value currentBackupFile() const { return daemonState_[statekey::currentBackupFile]; }
    [[nodiscard]] Value currentRestoreFile() const { return daemonState_[statekey::currentRestoreFile]; }
    [[nodiscard]] Value statusString() const { return daemonState_[statekey::statusString]; }
    [[nodiscard]] std::uint32_t backupState() const { return number(statekey::backupState); }
    [[nodiscard]] std::uint32_t currentRestoreJob() const { return number(statekey::currentRestoreJob); }
    [[nodiscard]] bool isBackupNeeded() const { return flag(statekey::isBackupNeeded); }
    [[nodiscard]] bool hasUnreadFiles() const { return flag(statekey::hasUnreadFiles); }
    [[nodiscard]] bool lowerPriorityMode() const { return flag(statekey::lowerPriorityMode); }
    [[nodiscard]] bool paused() const { return flag(statekey::paused); }
    [[nodiscard]] bool recoverMode() const { return flag(statekey::recoverMode); }
    [[nodiscard]] ServiceState serviceState() const {
        return static_cast<ServiceState>(number(statekey::serviceState));
    }
    [[nodiscard]] bool isOverQuota() const { return flag(statekey::isOverQuota); }
    [[nodiscard]] std::uint32_t quotaMB() const { return number(statekey::quotaMB); }
    [[nodiscard]] std::uint32_t quotaGB() const { return quotaMB() >> 10U; } // rounded down
    [[nodiscard]] std::uint32_t getBackupControl() const { return number(statekey::backupControlFlags); }

    // Empty when the daemon does not list alerts.
    [[nodiscard]] std::vector<StandingAlert> alerts() const {
        return standingAlertsFrom(daemonState_[statekey::alerts]);
    }

    // Empty or none when the daemon does not report it.
    [[nodiscard]] std::optional<Date> lastBackupDate() const { return date(statekey::lastBackupDate); }
    [[nodiscard]] std::optional<Date> nextBackupDate() const { return date(statekey::nextBackupDate); }
    [[nodiscard]] std::optional<Date> pausedUntil() const { return date(statekey::pausedUntil); }
    [[nodiscard]] std::string destination() const {
        return daemonState_[statekey::destination].stringValue();
    }
    [[nodiscard]] std::string waitingFor() const { return daemonState_[statekey::waitingFor].stringValue(); }
    [[nodiscard]] std::optional<std::uint64_t> bytesPerSecond() const {
        return count(statekey::bytesPerSecond);
    }
    [[nodiscard]] std::optional<std::uint64_t> secondsLeft() const { return count(statekey::secondsLeft); }

    // Absent, empty or none when the daemon does not report it.
    [[nodiscard]] Value lastVerifiedDate() const { return daemonState_[statekey::lastVerifiedDate]; }
    [[nodiscard]] std::string lastVerification() const {
        return daemonState_[statekey::lastVerification].stringValue();
    }
    [[nodiscard]] std::optional<double> verificationProgress() const; // from 0 to 1
    [[nodiscard]] std::uint64_t damagedFileCount() const { return number64(statekey::damagedFileCount); }
    [[nodiscard]] bool isBackupDamaged() const { return flag(statekey::isBackupDamaged); }

    // Whether the connected daemon has listed the extension in its state.
    [[nodiscard]] bool hasExtension(std::string_view name) const;

    // Returns the value of the last dictionary while connected; otherwise, and before the first one, the
    // stored value.
    [[nodiscard]] bool isQuotaLimited() const;

    // These return the daemon's answer while connected, even if it is empty; otherwise the stored value.
    [[nodiscard]] std::string serverURL() const;
    [[nodiscard]] Value computerNumber() const; // a number
    [[nodiscard]] std::string skinId() const;
    [[nodiscard]] std::string userEmail() const;

    // These ask the daemon; 0, false or absent while disconnected.
    [[nodiscard]] bool automaticMode() const { return query<"automaticMode">(); }
    [[nodiscard]] std::uint32_t pausedMinutes() const { return query<"pausedMinutes">(); }
    [[nodiscard]] Value marketingMessage() const { return query<"marketingMessage">(); }
    [[nodiscard]] Value dictionaryForPath(const std::string& path) const {
        return query<"dictionaryForPath:">(path);
    }
    [[nodiscard]] Value dictionaryForPath(const std::string& path, bool withDirSizes) const {
        return query<"dictionaryForPath:withDirSizes:">(path, withDirSizes);
    }
    [[nodiscard]] Value childrenDictionariesForPath(const std::string& path) const {
        return query<"childrenDictionariesForPath:">(path);
    }
    [[nodiscard]] Value stringValueForProfileKey(const std::string& key) const {
        return query<"stringValueForProfileKey:">(key);
    }
    [[nodiscard]] std::uint32_t getFileTypeToggle(const std::string& type) const {
        return query<"getFileTypeToggle:">(type);
    }

    // Sent to the daemon; dropped while disconnected.
    void setLowerPriorityMode(bool lower) { command<"setLowerPriorityMode:">(lower); }
    void setAutomaticMode(bool automatic) { command<"setAutomaticMode:">(automatic); }
    void setPausedMinutes(std::uint32_t minutes) { command<"setPausedMinutes:">(minutes); }
    void setRecoverMode(bool recover) { command<"setRecoverMode:">(recover); }
    void setAccountOverQuotaTestingFlag(bool isOver) { command<"setAccountOverQuotaTestingFlag:">(isOver); }
    void clearAccountOverQuotaTestingFlag() { command<"clearAccountOverQuotaTestingFlag">(); }
    void setValueForProfileKey(const std::string& key, const std::string& withString) {
        command<"setValueForProfileKey:withString:">(key, withString);
    }
    void addFileToBackup(const std::string& path) { command<"addFileToBackup:">(path); }
    void removeFileFromBackup(const std::string& path) { command<"removeFileFromBackup:">(path); }
    void setPriorityBackup(const std::string& path) { command<"setPriorityBackup:">(path); }
    void setFileTypeToggle(const std::string& type, std::uint32_t toggle) {
        command<"setFileTypeToggle:toggle:">(type, toggle);
    }
    void setAlertHandler() { command<"setAlertHandler">(); }
    void endAlertHandler() { command<"endAlertHandler">(); }
    void setStateHandler() { command<"setStateHandler">(); }
    void endStateHandler() { command<"endStateHandler">(); }
    void terminateDaemon() { command<"terminate">(); }

    // Extensions: unless the daemon lists the extension, nothing is sent and the answer is empty. Otherwise
    // an answer that is not empty says why nothing was done.
    [[nodiscard]] std::string dismissAlert(const std::string& id) {
        return extendedQuery<"dismissAlert:">(id).stringValue();
    }
    [[nodiscard]] std::string performAlertAction(const std::string& action, const std::string& ofAlert) {
        return extendedQuery<"performAlertAction:ofAlert:">(action, ofAlert).stringValue();
    }
    [[nodiscard]] std::string verify() { return extendedQuery<"verify">().stringValue(); }

    // No daemon has these methods: each throws UnknownSelector while connected.
    void setBackupControl(std::uint32_t flags) { setBackupControl(flags, false); }
    void setBackupControl(std::uint32_t flags, bool turnOff);
    [[nodiscard]] std::int32_t intValueForProfileKey(const std::string& key) const;
    void setValueForProfileKey(const std::string& key, std::uint32_t withUnsigned);

private:
    void onStatusTimer() { updateDaemonState(); }
    void daemonConnectionChangedNotification();
    [[nodiscard]] std::string proxyOrCacheString(std::string_view selector, std::string_view forItem) const;
    [[nodiscard]] std::string proxyOrCacheStringWithArg(std::string_view selector, const Value& arg,
                                                        std::string_view forItem) const;
    [[nodiscard]] Value proxyOrCacheInt(std::string_view selector, std::string_view forItem) const;

    [[nodiscard]] bool has(std::string_view key) const { return !daemonState_[key].isAbsent(); }
    [[nodiscard]] bool flag(std::string_view key) const { return daemonState_[key].boolValue(); }
    [[nodiscard]] std::uint32_t number(std::string_view key) const { return daemonState_[key].uint32Value(); }
    [[nodiscard]] std::uint64_t number64(std::string_view key) const {
        return daemonState_[key].uint64Value();
    }

    [[nodiscard]] std::optional<std::uint64_t> count(std::string_view key) const {
        const Value& value = daemonState_[key];
        return value.isNumber() ? std::optional(value.uint64Value()) : std::nullopt;
    }
    [[nodiscard]] std::optional<Date> date(std::string_view key) const {
        const Value& value = daemonState_[key];
        return value.kind() == Value::Kind::Date ? std::optional(value.dateValue()) : std::nullopt;
    }

    template <Selector selector, class... Arguments>
    void command(const Arguments&... arguments) const {
        if (const auto daemon = proxy())
            daemon->call<selector>(arguments...);
    }
    template <Selector selector, class... Arguments>
    [[nodiscard]] typename TypedMethod<selector>::Result query(const Arguments&... arguments) const {
        const auto daemon = proxy();
        return daemon ? daemon->call<selector>(arguments...) : typename TypedMethod<selector>::Result();
    }
    template <Selector selector, class... Arguments>
    [[nodiscard]] typename TypedMethod<selector>::Result extendedQuery(const Arguments&... arguments) const {
        constexpr std::string_view extension = TypedMethod<selector>::description->extension;
        static_assert(!extension.empty(), "every daemon has this method");
        return hasExtension(extension) ? query<selector>(arguments...)
                                       : typename TypedMethod<selector>::Result();
    }

    const std::shared_ptr<MainLoop> mainLoop_;
    const std::shared_ptr<NotificationCenter> notifications_;
    std::shared_ptr<ConnectionController> connection_;
    NotificationCenter::Observer connectionObserver_;
    Value daemonState_;
    Value extensions_; // those of the connected daemon; absent until its first state
    std::shared_ptr<const Bundle> bundle_;
    Timer statusTimer_;
    std::weak_ptr<InvocationTarget> proxyDelegate_;
    bool wantsStateChangedNotifications_ = false;
    bool disableConnectTimer_ = false;
    // A weak pointer to it tells a function that called out whether this object still exists.
    const std::shared_ptr<const void> presence_ = std::make_shared<char>();
};

} // namespace kelvane
