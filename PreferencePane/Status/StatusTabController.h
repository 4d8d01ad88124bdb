#pragma once

#include "PaneTools/HandOffFile.h"
#include "PreferencePane/Services/PaneServices.h"
#include "PreferencePane/Services/TabControllers.h"
#include "PreferencePane/Status/StatusFigures.h"
#include "PreferencePane/Status/StatusTexts.h"

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <array>
#include <memory>
#include <string>

namespace Ui {
class StatusTab;
}

namespace kelvane {

// The Status tab: shows what the daemon is doing, lets the user choose its mode and two settings, opens web
// pages, and runs the tools in the bundle that start, stop and remove the daemon. While the daemon cannot be
// reached it shows the last known values.
//
// Main thread only. The pane outlives it. It owns its view until the tab adopts it; the view must exist
// during every call. Asking for a password and running a tool use a nested event loop: the pane may be hidden
// meanwhile, but this object must not be deleted.
class KelvaneStatusTabController final : public StatusTab {
public:
    explicit KelvaneStatusTabController(PaneServices& prefs,
                                        std::string handOffPath = HandOffFile::defaultPath);
    ~KelvaneStatusTabController() override;
    KelvaneStatusTabController(const KelvaneStatusTabController&) = delete;
    KelvaneStatusTabController& operator=(const KelvaneStatusTabController&) = delete;

    [[nodiscard]] QWidget* view() override { return view_; }
    void awakeFromNib() override;
    void didSelectPrefPane() override;
    void refreshStatusModePopup() override;
    void writeStatusFieldsToDefaultsDB() override;
    void updateStatusFieldsFromDefaultsDB();
    [[nodiscard]] bool inRecoverMode() const override;
    void openURLUsingKey(const std::string& key) override;

private:
    enum class Operation { Enable = 0, Disable = 1, Uninstall = 2 };
    struct ModeReading {
        DaemonMode mode = DaemonMode::Disabled;
        std::uint32_t pausedMinutes = 0;
    };
    class Operating;

    void connectControls();
    void lowerPriorityAction();
    void showMenuAction();
    void openAccountAction();
    void referAction();

    void readyChangedNotification();
    void daemonStateChangedNotification();
    void showDaemonState(const BackupState& state);
    void showAmounts(const BackupState& state);
    void showServiceState(const BackupState& state);
    void showAccount(const AccountData& account);
    void showAccountText(const std::string& email);
    [[nodiscard]] std::string text(StatusText name) const { return statusText(*prefs_.bundle(), name); }
    [[nodiscard]] static bool isShowRefer() { return false; } // there is no such page yet

    void daemonModeAction(std::int32_t index);
    [[nodiscard]] DaemonMode getDaemonMode() const { return readDaemonMode().mode; }
    [[nodiscard]] ModeReading readDaemonMode() const;
    [[nodiscard]] bool isDisabled() const {
        return currentDaemonModeButtonState_ == static_cast<std::int32_t>(DaemonMode::Disabled);
    }
    void updateMode();
    void followPause();
    void updateModeMenuForCurrentState(std::int32_t mode);
    void setDaemonModeField(const ModeReading& reading);
    void showModeSentence(const ModeReading& reading);
    void warnUserAboutMode(DaemonMode mode);
    void alertDidEnd(int returnCode);
    void handleDaemonModeAction(DaemonMode mode);
    void applyMode(DaemonMode mode);
    [[nodiscard]] int enableDaemon(bool enable);

    [[nodiscard]] int uninstall(Operation operation);
    [[nodiscard]] int handOver(Operation operation);
    [[nodiscard]] int runSwitch(Operation operation);
    void runUninstaller(const HandOffFile& handOff);
    void showFailure(Operation operation, const std::string& reason);
    void uninstallAction();
    void uninstallAlertDidEnd(int returnCode);

    PaneServices& prefs_;
    const std::string handOffPath_;
    const std::unique_ptr<Ui::StatusTab> ui_;
    const QPointer<QWidget> view_;
    std::array<NotificationCenter::Observer, 2> observers_;
    QPointer<QMessageBox> sheet_;
    Timer pauseTimer_; // runs while a pause is shown

    std::int32_t lastDaemonModeButtonState_ = 0;
    std::int32_t currentDaemonModeButtonState_ = 0;
    DaemonMode nextRequestedMode_ = DaemonMode::Enabled;
    bool hasRecentDataFromDaemon_ = false;
    bool isDisableInProgress_ = false;
    bool isShown_ = false;     // whether the pane is shown
    bool isOperating_ = false; // a password is being asked for, or a tool is running
    bool isUninstalled_ = false;
    QObject context_; // its destruction disconnects the controls
};

} // namespace kelvane
