#pragma once

#include "Platform/Desktop/PanePlugin.h"
#include "Platform/Desktop/SessionWatch.h"
#include "Platform/Files/MountTable.h"
#include "PreferencePane/Bullets.h"
#include "PreferencePane/PaneView.h"
#include "PreferencePane/Services/PaneServices.h"
#include "PreferencePane/Services/TabControllers.h"

#include <functional>
#include <memory>
#include <optional>

namespace kelvane {

// The platform services that a pane controller passes to its tabs.
struct PanePlatform {
    std::shared_ptr<const Bundle> bundle;
    std::shared_ptr<NotificationCenter> notifications;
    std::unique_ptr<const FileSystem> fileSystem;
    std::unique_ptr<const Accounts> accounts;
    std::unique_ptr<const Icons> icons;
    std::unique_ptr<const FileServices> fileServices;
    std::function<bool(std::string_view path)> isMountPoint = kelvane::isMountPoint;
};

// The controllers that the pane controller drives. A missing one has no tab and gets no calls.
struct PaneParts {
    std::unique_ptr<InfoWindows> info; // outlives the tabs, which set its file
    std::unique_ptr<StatusTab> status;
    std::unique_ptr<BackupTab> backup;
    std::unique_ptr<RestoreTab> restore;
    std::unique_ptr<HelpTab> help;
};

// The pane's principal class. It owns the facade over the daemon while the pane is shown, decides which tabs
// are visible, unlocks changes, shows the restore progress in place of the tab area, and passes the daemon's
// calls to the tabs.
//
// Main thread only. It is created without its parts, because they need it; `setParts` must be called before
// `awakeFromNib`. The host outlives it.
class ComKelvanePreferencePanePref final : public Pane, public PaneServices, private AuthorizationDelegate {
public:
    ComKelvanePreferencePanePref(PaneHost& host, PanePlatform platform);
    ~ComKelvanePreferencePanePref() override;

    void setParts(PaneParts parts);

    void awakeFromNib() override;
    void mainViewDidLoad() override;
    void didSelect() override;
    void willUnselect() override;
    void disconnectFromDaemon();
    [[nodiscard]] QWidget* mainView() override { return view_.get(); }
    [[nodiscard]] std::vector<std::string> tabNames() const override { return view_->tabNames(); }
    [[nodiscard]] bool selectTab(const std::string& name) override { return view_->selectTab(name); }
    [[nodiscard]] bool isReady() const override { return connected(); }

    [[nodiscard]] std::shared_ptr<BackupState> backupState() const override { return backupState_; }
    [[nodiscard]] const std::shared_ptr<const Bundle>& bundle() const override { return platform_.bundle; }
    [[nodiscard]] Value skinOptions() const override;
    [[nodiscard]] const std::shared_ptr<NotificationCenter>& notifications() const override {
        return platform_.notifications;
    }
    [[nodiscard]] const std::shared_ptr<MainLoop>& mainLoop() const override { return mainLoop_; }
    [[nodiscard]] const FileServices& fileServices() const override { return *platform_.fileServices; }
    [[nodiscard]] const Icons& icons() const override { return *platform_.icons; }
    [[nodiscard]] Opener& opener() const override { return host_.opener(); }
    [[nodiscard]] Authorization& authorization() const override { return *authorization_; }
    void terminateHost() override { host_.terminate(); }

    // The right must exist and must have been granted.
    [[nodiscard]] bool prefPaneAccessAuthorized() const override {
        return authorization_->state() == Authorization::State::Authorized;
    }
    [[nodiscard]] PaneFlags& flags() override { return flags_; }
    void enableBackupTabItems(bool enable) override;
    void enableRestoreTabItems(bool enable) override;
    void setMessageTabString(const std::string& message) override { view_->setMessage(message); }
    void setBadConfigurationFlag() override { badConfiguration_ = true; }
    void changeTabConfiguration(std::int32_t command, bool forceUpdate) override;
    void showRestoreProgress(bool show) override;
    [[nodiscard]] bool isInRecoverMode() const override {
        return parts_.status && parts_.status->inRecoverMode();
    }
    void showOnlineHelp() override;

    [[nodiscard]] QWidget* mainView() const override { return view_.get(); }
    [[nodiscard]] QWidget* backupTab() const override { return view_->page(PaneTab::Backup); }
    [[nodiscard]] QWidget* restoreTab() const override { return view_->page(PaneTab::Restore); }
    [[nodiscard]] QIcon bulletImageForColor(std::int32_t color) const override {
        return bullets_.imageForColor(color);
    }
    // The bullet for the colour that the daemon reports for the path.
    [[nodiscard]] QIcon bulletImageForPath(const std::string& path) const;
    // Whether an application with this identifier, compared without regard to case, runs in the user's
    // session.
    [[nodiscard]] bool isLaunchAgentProcessRunning(const std::string& bundleIdentifier) const;
    [[nodiscard]] bool existsDriveMountedAtSVD() const override;

    // The daemon's calls, forwarded on the main thread.
    void fileChanged(const std::string& path);
    void folderChanged(const std::string& path);
    void stateChanged(std::uint32_t state);
    void setAlertString(const std::string& alert);

private:
    class ClientProtocol;

    void beginBackupState();
    void onConnectionChanged();
    void onBackupStateChanged();
    void resumeRestoreProgress();
    bool setRestoreProgressVisible(bool visible); // returns whether the visibility changed
    void registerHandlers(bool wanted);
    void updateMarketName();
    void fastUserSwitchNotification(bool isActive);
    void applyTabConfiguration(std::int32_t command);
    void post(std::string_view notification) { notifications()->post(notification, this); }
    [[nodiscard]] std::string shortened(const std::string& path) const;

    void setupAuth();
    void accessChanged();
    void authorizationDidAuthorize() override;
    void authorizationDidDeauthorize() override;
    void authorizationAskingChanged() override;
    void toggleLock();

    PaneHost& host_;
    const PanePlatform platform_;
    const std::shared_ptr<MainLoop> mainLoop_;
    Bullets bullets_;
    std::unique_ptr<Authorization> authorization_;
    // Destroyed after the parts, whose widgets it has adopted.
    const std::unique_ptr<PaneView> view_;
    PaneParts parts_;
    PaneFlags flags_;

    std::shared_ptr<ClientProtocol> client_;
    std::shared_ptr<BackupState> backupState_;
    NotificationCenter::Observer connectionObserver_;
    NotificationCenter::Observer stateObserver_;
    Timer uiUpdateTimer_;
    std::optional<SessionWatch> sessionWatch_;

    bool restoreProgressVisible_ = false;
    bool badConfiguration_ = false;
    std::int32_t lastChangeTabConfigurationCommand_ = 0;
};

} // namespace kelvane
