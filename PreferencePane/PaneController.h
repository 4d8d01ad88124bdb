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

// What a pane controller is given: the machine, as its tabs are to see it.
struct PanePlatform {
    std::shared_ptr<const Bundle> bundle;
    std::shared_ptr<NotificationCenter> notifications;
    std::unique_ptr<const FileSystem> fileSystem;
    std::unique_ptr<const Accounts> accounts;
    std::unique_ptr<const Icons> icons;
    std::unique_ptr<const FileServices> fileServices;
    std::function<bool(std::string_view path)> isMountPoint = kelvane::isMountPoint;
};

// The controllers that it drives. One that is missing has no tab, and nothing is asked of it.
struct PaneParts {
    std::unique_ptr<InfoWindows> info; // outlives the tabs, which point it at files
    std::unique_ptr<StatusTab> status;
    std::unique_ptr<BackupTab> backup;
    std::unique_ptr<RestoreTab> restore;
    std::unique_ptr<HelpTab> help;
};

// The pane's principal class: owns the facade over the daemon for as long as the pane is shown, decides which
// tabs are visible, unlocks changes, swaps the tab area for the restore progress, and passes the daemon's
// calls on to the tabs.
//
// Main thread only. It is made without its parts, because they need it; `setParts` comes before
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

    // That the right exists is not enough: somebody must have granted it.
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
    // Of what the daemon says about the path.
    [[nodiscard]] QIcon bulletImageForPath(const std::string& path) const;
    // Whether an application of this identifier runs in the user's session, upper and lower case being the
    // same.
    [[nodiscard]] bool isLaunchAgentProcessRunning(const std::string& bundleIdentifier) const;
    [[nodiscard]] bool existsDriveMountedAtSVD() const override;

    // What the daemon's calls come to, on the main thread.
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
    bool setRestoreProgressVisible(bool visible); // whether that is a change
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
    // Deleted after the parts, whose widgets it has taken.
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
