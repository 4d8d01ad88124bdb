// The daemon side of the pane controller: link, state and calls.

#include "PreferencePane/PaneController.h"

#include "Common/RestoreStatus.h"
#include "PreferencePane/ClientProtocol.h"
#include "PreferencePane/RestoreAlert.h"
#include "Support/Logging.h"
#include "Support/PathHelpers.h"

namespace kelvane {

void ComKelvanePreferencePanePref::onBackupStateChanged() {
    post(KelvanePrefPaneDaemonStateChangedNotification);
    changeTabConfiguration(tabconfiguration::normal, false);
    updateMarketName();
}

void ComKelvanePreferencePanePref::onConnectionChanged() {
    if (!connected()) {
        KelvaneCLog("PreferencePane not connected");
        changeTabConfiguration(tabconfiguration::normal, true);
        post(KelvanePrefPaneReadyChangedNotification);
        return;
    }
    KelvaneCLog("PreferencePane connected");
    post(KelvanePrefPaneReadyChangedNotification);
    onBackupStateChanged();
    resumeRestoreProgress();
}

// A restore may have started before this link, or ended since the last one.
void ComKelvanePreferencePanePref::resumeRestoreProgress() {
    const std::shared_ptr<KelvaneProxy> daemon = proxy();
    if (!daemon)
        return;
    bool isAnswered = false;
    const auto number = [&](std::string_view selector, const std::vector<Value>& arguments) {
        return daemon->invoke(selector, arguments, &isAnswered).uint32Value();
    };
    const std::uint32_t job = number("getCurrentRestoreJob", {});
    const bool isRunning = job != 0 && number("getRestoreJobStatus:", {job}) >= restorestatus::running;
    if (!isAnswered)
        return; // the link was lost meanwhile; the next one asks again
    setRestoreProgressVisible(isRunning);
    if (isRunning)
        registerHandlers(true); // a new link has no subscription
}

void ComKelvanePreferencePanePref::updateMarketName() {
    const std::shared_ptr<BackupState> state = backupState_;
    const std::string skinId = state ? state->skinId() : std::string();
    if (skinId.empty())
        return;
    const std::string name = bundle()->localizedString(skinId, "", "MarketNames");
    if (name.empty() || name == skinId)
        return;
    // Compares with the id and not with the name, on purpose: a shown text that equals the id stays.
    if (view_->marketName() != skinId)
        view_->setMarketName(name);
}

// Updates at once, so that a user who switches back sees the current state and not that of two seconds ago.
// Posted, like everything that asks the daemon.
void ComKelvanePreferencePanePref::fastUserSwitchNotification(bool isActive) {
    if (!isActive)
        return;
    mainLoop_->post([state = std::weak_ptr(backupState_)] {
        if (const auto present = state.lock())
            present->updateDaemonState();
    });
}

std::string ComKelvanePreferencePanePref::shortened(const std::string& path) const {
    return kelv_shortVolumePath(path, *fileServices().fileSystem().volumes());
}

void ComKelvanePreferencePanePref::fileChanged(const std::string& path) {
    const std::string shortPath = shortened(path);
    if (parts_.backup)
        parts_.backup->fileChanged(shortPath);
    if (parts_.restore)
        parts_.restore->fileChanged(shortPath);
}

void ComKelvanePreferencePanePref::folderChanged(const std::string& path) {
    if (parts_.backup)
        parts_.backup->folderChanged(shortened(path));
}

void ComKelvanePreferencePanePref::stateChanged(std::uint32_t state) {
    if (!backupState_)
        return; // this call was posted before the pane was hidden
    if (state == restoreprogress::begin)
        return showRestoreProgress(true);
    const std::shared_ptr<KelvaneProxy> daemon = proxy();
    if (!parts_.restore)
        return;
    // Without a daemon, or when the link is lost during the call, the answer is empty or 0.
    if (state == restoreprogress::currentFile)
        parts_.restore->restoredFileName(daemon ? daemon->call<"stringForState:">(state).stringValue()
                                                : std::string());
    else if (state == restoreprogress::currentFileSize)
        parts_.restore->restoredFileSize(daemon ? daemon->call<"longlongForState:">(state) : 0);
    else if (state == restoreprogress::pendingCount)
        parts_.restore->restoredPendingCount(
            static_cast<std::uint32_t>(daemon ? daemon->call<"longForState:">(state) : 0));
}

void ComKelvanePreferencePanePref::setAlertString(const std::string& alert) {
    KelvaneCLog("Alert: %@", alert);
    if (endsRestoreProgress(alert))
        showRestoreProgress(false);
}

} // namespace kelvane
