#include "PreferencePane/PaneController.h"

#include "Common/FileNode/FileNode.h"
#include "Platform/Desktop/RunningApplications.h"
#include "Platform/PropertyListFile.h"
#include "Platform/SystemVersion.h"
#include "PreferencePane/ClientProtocol.h"
#include "Support/Logging.h"
#include "Support/PathHelpers.h"

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr auto marketNameInterval = 60s;
// Windows of earlier system versions were too narrow for this pane.
constexpr std::uint32_t versionOfWideWindows = 0x1050;
constexpr int missingWidth = 75; // in points

RightDefinition changeRight() {
    return {"com.kelvane.prefs.change", "Change what Kelvane backs up",
            "Authentication is required to change the settings of your backup"};
}

} // namespace

ComKelvanePreferencePanePref::ComKelvanePreferencePanePref(PaneHost& host, PanePlatform platform)
    : host_(host),
      platform_(std::move(platform)),
      mainLoop_(host.mainLoop()),
      authorization_(host.makeAuthorization(changeRight())),
      view_(std::make_unique<PaneView>(*platform_.bundle)),
      client_(std::make_shared<ClientProtocol>(*this)) {}

ComKelvanePreferencePanePref::~ComKelvanePreferencePanePref() {
    KelvaneCLog("authorizationViewReleasedAuthorization");
    authorization_->setDelegate(nullptr);
    disconnectFromDaemon();
}

void ComKelvanePreferencePanePref::setParts(PaneParts parts) {
    parts_ = std::move(parts);
    if (parts_.status)
        view_->fill(PaneTab::Status, parts_.status->view());
    if (parts_.backup)
        view_->fill(PaneTab::Backup);
    if (parts_.restore) {
        view_->fill(PaneTab::Restore);
        view_->setRestoreProgressView(parts_.restore->progressView());
    }
    if (parts_.help)
        view_->fill(PaneTab::Help, parts_.help->view());
}

void ComKelvanePreferencePanePref::awakeFromNib() {
    bullets_.load(*bundle());
    KelvaneLogStart();
    badConfiguration_ = false;
    changeTabConfiguration(tabconfiguration::normal, true);
    if (parts_.status)
        parts_.status->awakeFromNib();
    if (parts_.backup)
        parts_.backup->awakeFromNib();
    if (parts_.restore)
        parts_.restore->awakeFromNib();
    if (parts_.help)
        parts_.help->awakeFromNib();
}

void ComKelvanePreferencePanePref::mainViewDidLoad() {
    setupAuth();
}

void ComKelvanePreferencePanePref::didSelect() {
    view_->selectFirstTab();
    changeTabConfiguration(tabconfiguration::normal, false);
    if (!backupState_)
        beginBackupState();
    if (!sessionWatch_)
        sessionWatch_.emplace([this](bool isActive) { fastUserSwitchNotification(isActive); });
    if (packedSystemVersion < versionOfWideWindows)
        host_.widenWindow(missingWidth);
    if (parts_.status)
        parts_.status->didSelectPrefPane();
}

void ComKelvanePreferencePanePref::beginBackupState() {
    const auto state = std::make_shared<BackupState>(mainLoop_, notifications(), bundle());
    backupState_ = state;
    state->setProxyDelegate(client_);
    state->setBundle(bundle());
    state->setWantsStateChangedNotifications();
    connectionObserver_ =
        notifications()->observe(KelvaneBackupStateConnectionChangedNotification, state.get(),
                                 [this](const Notification&) { onConnectionChanged(); });
    stateObserver_ = notifications()->observe(KelvaneBackupStateChangedNotification, state.get(),
                                              [this](const Notification&) { onBackupStateChanged(); });
    uiUpdateTimer_ =
        mainLoop_->schedule(marketNameInterval, MainLoop::Repeat::Always, [this] { updateMarketName(); });
    state->onBegin();
}

void ComKelvanePreferencePanePref::willUnselect() {
    disconnectFromDaemon();
    showRestoreProgress(false); // the next link asks whether a restore is still running
    changeTabConfiguration(tabconfiguration::normal, false);
    if (parts_.info)
        parts_.info->closeInfoWindows();
    if (packedSystemVersion < versionOfWideWindows)
        host_.widenWindow(-missingWidth);
    if (parts_.status)
        parts_.status->writeStatusFieldsToDefaultsDB();
    if (std::exchange(badConfiguration_, false))
        changeTabConfiguration(tabconfiguration::normal, true); // a change that the flag held back
}

void ComKelvanePreferencePanePref::disconnectFromDaemon() {
    uiUpdateTimer_.stop();
    const std::shared_ptr<BackupState> state = backupState_;
    if (state)
        state->onEnd();
    connectionObserver_ = {};
    stateObserver_ = {};
    backupState_.reset();
}

void ComKelvanePreferencePanePref::changeTabConfiguration(std::int32_t command, bool forceUpdate) {
    if (command == lastChangeTabConfigurationCommand_ && !forceUpdate)
        return;
    if (command != tabconfiguration::lastAgain)
        lastChangeTabConfigurationCommand_ = command;
    if (!badConfiguration_)
        applyTabConfiguration(lastChangeTabConfigurationCommand_);
}

void ComKelvanePreferencePanePref::applyTabConfiguration(std::int32_t command) {
    if (command == tabconfiguration::normal) {
        for (const PaneTab tab : {PaneTab::Status, PaneTab::Backup, PaneTab::Restore})
            view_->show(tab, true);
        view_->show(PaneTab::Message, false);
        enableRestoreTabItems(true);
        enableBackupTabItems(true);
    } else if (command == tabconfiguration::messageOnly) {
        enableRestoreTabItems(false);
        enableBackupTabItems(false);
        for (const PaneTab tab : {PaneTab::Status, PaneTab::Backup, PaneTab::Restore})
            view_->show(tab, false);
        view_->show(PaneTab::Message, true);
        view_->selectTab(PaneTab::Message);
    }
}

void ComKelvanePreferencePanePref::enableBackupTabItems(bool enable) {
    if (parts_.backup)
        parts_.backup->enableTabItems(enable);
}

void ComKelvanePreferencePanePref::enableRestoreTabItems(bool enable) {
    if (parts_.restore)
        parts_.restore->enableTabItems(enable);
}

void ComKelvanePreferencePanePref::showRestoreProgress(bool show) {
    if (setRestoreProgressVisible(show))
        registerHandlers(show);
}

bool ComKelvanePreferencePanePref::setRestoreProgressVisible(bool visible) {
    if (!parts_.restore || visible == restoreProgressVisible_)
        return false;
    view_->showRestoreProgress(visible);
    restoreProgressVisible_ = visible;
    return true;
}

// Subscribes to the restore progress on the current link, or unsubscribes.
void ComKelvanePreferencePanePref::registerHandlers(bool wanted) {
    const std::shared_ptr<BackupState> state = backupState_;
    if (!state)
        return;
    if (wanted) {
        state->setStateHandler();
        state->setAlertHandler();
    } else {
        state->endStateHandler();
        state->endAlertHandler();
    }
}

void ComKelvanePreferencePanePref::showOnlineHelp() {
    if (parts_.status)
        parts_.status->openURLUsingKey("Online Help URL");
}

Value ComKelvanePreferencePanePref::skinOptions() const {
    const auto path = bundle()->resourcePath("SkinOptions", "plist");
    if (!path)
        return {};
    const PropertyListReading options = readPropertyListFile(*path);
    return options.value.isDictionary() ? options.value : Value();
}

QIcon ComKelvanePreferencePanePref::bulletImageForPath(const std::string& path) const {
    const FileNodeRef node = KelvaneFileNode::fileNodeForPath(path, proxy());
    return bulletImageForColor(node ? node->backupColor() : 0);
}

bool ComKelvanePreferencePanePref::isLaunchAgentProcessRunning(const std::string& bundleIdentifier) const {
    return isApplicationAmong(runningApplications(), bundleIdentifier);
}

bool ComKelvanePreferencePanePref::existsDriveMountedAtSVD() const {
    return platform_.isMountPoint(kelv_svdPath());
}

} // namespace kelvane
