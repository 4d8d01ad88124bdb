#pragma once

#include "PreferencePane/Browser/ColumnBrowserDelegate.h"
#include "PreferencePane/Info/InfoWindowController.h"
#include "PreferencePane/Restore/RestoreTabRules.h"
#include "PreferencePane/Services/PaneServices.h"
#include "PreferencePane/Services/TabControllers.h"

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QFileDialog;

namespace Ui {
class RestoreProgressView;
class RestoreView;
} // namespace Ui

namespace kelvane {

// The Restore tab: the tree of files in the backup, from which the user selects items that the daemon
// restores, each as one job; and the progress view, which the pane shows in place of its tabs meanwhile.
// Another view is shown while there is no daemon.
//
// Main thread only. The pane and the Info window's controller outlive it. Its views are children of the
// pane's page for them, which shows one at a time; it owns the progress view until the pane adopts it.
class KelvaneRestoreTabController final : public RestoreTab, private ColumnBrowserDelegate {
public:
    KelvaneRestoreTabController(PaneServices& prefs, KelvaneInfoWindowController& infoController);
    ~KelvaneRestoreTabController() override;

    [[nodiscard]] QWidget* progressView() override { return progressView_; }
    void awakeFromNib() override;
    void enableTabItems(bool enabled) override;
    void fileChanged(const std::string& path) override;
    // Ignored: only the size is shown.
    void restoredFileName(const std::string& /*name*/) override {}
    void restoredFileSize(std::uint64_t size) override { restoreFileSize_ = size; }
    void restoredPendingCount(std::uint32_t count) override;

private:
    // The views, and what is selected
    void connectControls();
    void setCurrentView();
    void readyChangedNotification();
    void daemonStateChangedNotification();
    void restoreBrowserAction();
    std::optional<SelectionLook> showSelection();
    void getInfoAction();
    void restoreAssistantAction();
    [[nodiscard]] std::vector<std::string> selectedFilePaths() const;

    // The backed-up tree
    [[nodiscard]] std::optional<BrowserRows> createRowsForColumn(ColumnBrowser& browser, int column) override;
    [[nodiscard]] IconHandle imageForCell(const KelvaneBrowserCell& cell) override;
    [[nodiscard]] std::optional<BrowserRows> volumeRows(const std::shared_ptr<KelvaneProxy>& daemon);
    [[nodiscard]] std::optional<BrowserRows> itemRows(const std::string& folder,
                                                      const std::shared_ptr<KelvaneProxy>& daemon) const;

    // The destination
    void restoreAction();
    void showAlert(const RestoreAlertTexts& texts, bool canConfirm);
    void restoreAlertDidEnd(int returnCode);
    [[nodiscard]] bool isVolumeMissing(const std::string& volume) const;
    [[nodiscard]] bool selectedVolumesMissing() const;
    void chooseRestoreLocation();
    void openPanelDidEnd(int returnCode);
    void restoreToDesktop();
    void closeSheets();

    // The jobs and their progress
    void restoreToPath(const std::optional<std::string>& folder);
    void showNoCountsYet();
    void showRestoreCounts();
    void progressDisappeared();
    void restorePauseAction();
    void restoreCancelAction();

    PaneServices& prefs_;
    KelvaneInfoWindowController& infoController_;
    const std::unique_ptr<Ui::RestoreView> ui_;
    const std::unique_ptr<Ui::RestoreProgressView> progress_;
    // Each may be deleted first, with the pane's view.
    const QPointer<QWidget> restoreView_;
    const QPointer<QWidget> disabledRestoreView_;
    const QPointer<QWidget> progressView_;
    std::array<NotificationCenter::Observer, 2> observers_;
    QPointer<QMessageBox> alert_;
    QPointer<QFileDialog> panel_;

    bool restorePaused_ = false; // affects only the display
    bool tabItemsAreEnabled_ = false;
    bool registeredForUIEvents_ = false;
    RestoreCounts counts_;
    std::vector<std::string> chosenPaths_;   // the paths that the fields describe
    std::vector<std::string> restoredPaths_; // set when Restore was pressed
    std::uint64_t restoreFileSize_ = 0;
    std::uint32_t rootColumnCount_ = 0; // the number of volumes in the last answer for the first column
    RestoreLocation selectedRestoreLocation_ = RestoreLocation::None;
    QObject context_; // its destruction disconnects the controls
};

} // namespace kelvane
