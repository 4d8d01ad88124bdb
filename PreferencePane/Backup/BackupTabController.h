#pragma once

#include "PreferencePane/Backup/BackupTabRules.h"
#include "PreferencePane/Backup/FolderWatcher.h"
#include "PreferencePane/Backup/ReloadThrottle.h"
#include "PreferencePane/Backup/VisibleFiles.h"
#include "PreferencePane/Browser/ColumnBrowserDelegate.h"
#include "PreferencePane/Info/InfoWindowController.h"
#include "PreferencePane/Services/PaneServices.h"
#include "PreferencePane/Services/TabControllers.h"

#include <QObject>
#include <QPointer>
#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Ui {
class AutoBackupView;
class ManualBackupView;
} // namespace Ui

namespace kelvane {

class ChoosePanel;

// The Backup tab, which controls what is backed up: in automatic mode a list of exclusions, in manual mode a
// browser of the local disk whose items are included or excluded one by one, and a third view while there is
// no daemon. The browser watches the folders that it shows and updates its columns.
//
// Main thread only. The pane and the Info window's controller outlive it. Its views are children of the
// pane's page for them, which shows one at a time.
class KelvaneBackupTabController final : public BackupTab, private ColumnBrowserDelegate {
public:
    // Null when watching folders is not possible.
    [[nodiscard]] static std::unique_ptr<KelvaneBackupTabController>
    create(PaneServices& prefs, KelvaneInfoWindowController& infoController);
    ~KelvaneBackupTabController() override;

    void awakeFromNib() override;
    void enableTabItems(bool enabled) override;
    void fileChanged(const std::string& path) override;
    // Reads the whole list of excluded items again, whatever the path.
    void folderChanged(const std::string& path) override;

private:
    KelvaneBackupTabController(PaneServices& prefs, KelvaneInfoWindowController& infoController);

    // The views
    void connectControls();
    void setCurrentView();
    [[nodiscard]] BackupView wantedView() const;
    void showContext(bool isRecovering);
    void closePanel();
    void setManualBackupMode(bool isManual);
    void autoManualAction();
    void readyChangedNotification();
    void daemonStateChangedNotification();
    void readPolicyExcludeList();
    [[nodiscard]] bool isPathExcludedByPolicy(const std::string& path) const;

    // Automatic mode
    void tableViewSelectionDidChange();
    enum class ExcludeSegment { Add, Remove, Info };
    void excludeButtonAction(ExcludeSegment segment);
    void chooseFiles();
    void addFilesDidEnd(const std::vector<std::string>& filenames, int returnCode);
    void removeSelected();
    void addExcludePaths(const std::vector<std::string>& paths);

    // Manual mode
    [[nodiscard]] std::optional<BrowserRows> createRowsForColumn(ColumnBrowser& browser, int column) override;
    [[nodiscard]] IconHandle imageForCell(const KelvaneBrowserCell& cell) override;
    [[nodiscard]] std::optional<BrowserRows> volumeRows(const std::shared_ptr<KelvaneProxy>& daemon) const;
    [[nodiscard]] std::optional<BrowserRows> itemRows(const std::string& folder,
                                                      const std::shared_ptr<KelvaneProxy>& daemon);
    void refreshFolders();
    void manualBrowserAction();
    void manualToggleAction();
    void toggle(std::size_t item, int column);
    void showToggleState(std::int32_t state);
    [[nodiscard]] int columnOf(const std::string& path) const;

    PaneServices& prefs_;
    KelvaneInfoWindowController& infoController_;
    const std::unique_ptr<Ui::AutoBackupView> auto_;
    const std::unique_ptr<Ui::ManualBackupView> manual_;
    std::map<BackupView, QPointer<QWidget>> views_;
    std::array<NotificationCenter::Observer, 2> observers_;
    QPointer<ChoosePanel> panel_;

    std::vector<std::string> policyExcludeList_;
    VisibleFiles visibleFiles_;
    // The paths that the toggle button applies to, with the daemon's last answer for each.
    std::vector<std::string> chosenPaths_;
    FileNodeList chosenNodes_;
    MarkCounts chosenMarks_;
    bool manualBackupMode_ = false;
    bool tabsEnabled_ = false;
    bool isExcludePolicyRead_ = false; // from the connected daemon
    bool areFoldersStale_ = false;     // applies to the open folders, not to the first column
    ReloadThrottle throttle_;
    std::unique_ptr<FolderWatcher> watcher_;
    QObject context_; // its destruction disconnects the controls
};

} // namespace kelvane
