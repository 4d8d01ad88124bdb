// Chooses the destination of a restore.

#include "PreferencePane/Browser/BrowserVolumes.h"
#include "PreferencePane/Restore/RestoreTabController.h"
#include "PreferencePane/Restore/ui_RestoreView.h"
#include "PreferencePane/Services/Sheet.h"
#include "Support/Logging.h"

#include <QFileDialog>
#include <QStandardPaths>
#include <algorithm>
#include <filesystem>

namespace kelvane {
namespace {

QString shown(const RestoreText& text, const PaneServices& prefs) {
    return prefs.qtext(text.key, text.english);
}

std::string desktopFolder() {
    return QStandardPaths::standardLocations(QStandardPaths::DesktopLocation).value(0).toStdString();
}

} // namespace

// A selected item may have been removed from the backup, in which case its parent folder is selected; the
// fields do not describe that folder.
void KelvaneRestoreTabController::restoreAction() {
    restoredPaths_ = selectedFilePaths();
    if (restoredPaths_ != chosenPaths_)
        return restoreBrowserAction();
    selectedRestoreLocation_ = restoreLocationAt(ui_->destinationButton->currentIndex());
    switch (selectedRestoreLocation_) {
    case RestoreLocation::Original: return showAlert(restoreOriginalAlert, !selectedVolumesMissing());
    case RestoreLocation::Desktop: return showAlert(restoreDesktopAlert, true);
    case RestoreLocation::Other: return chooseRestoreLocation();
    case RestoreLocation::None: break;
    }
}

void KelvaneRestoreTabController::showAlert(const RestoreAlertTexts& texts, bool canConfirm) {
    if (!prefs_.connected())
        return; // lost while asking for the volumes
    Sheet sheet{.message = shown(texts.message, prefs_),
                .informative = shown(texts.information, prefs_),
                .buttons = {},
                .canConfirm = canConfirm,
                .showHelp = [this] { prefs_.showOnlineHelp(); }};
    for (const RestoreText& button : texts.buttons)
        sheet.buttons.push_back(shown(button, prefs_));
    alert_ = openSheet(prefs_.mainView(), sheet, &context_,
                       [this](int returnCode) { restoreAlertDidEnd(returnCode); });
}

void KelvaneRestoreTabController::restoreAlertDidEnd(int returnCode) {
    if (!prefs_.connected())
        return; // lost since the answer
    switch (stepAfterAlert(selectedRestoreLocation_, returnCode)) {
    case RestoreStep::Nothing: return;
    case RestoreStep::RestoreToOriginal: return restoreToPath(std::nullopt);
    case RestoreStep::RestoreToDesktop: return restoreToDesktop();
    case RestoreStep::ChooseLocation:
        QMetaObject::invokeMethod(
            &context_, [this] { chooseRestoreLocation(); }, Qt::QueuedConnection);
    }
}

bool KelvaneRestoreTabController::isVolumeMissing(const std::string& volume) const {
    const FileSystem& disk = prefs_.fileServices().fileSystem();
    if (!disk.exists(volume))
        return true;
    const FileNodeRef node = KelvaneFileNode::fileNodeForPath(volume, prefs_.proxy());
    return !node || disk.mountPoint(node->fileName()) != node->fileName();
}

bool KelvaneRestoreTabController::selectedVolumesMissing() const {
    const std::set<std::string> volumes = volumesOf(restoredPaths_);
    return std::ranges::any_of(volumes, [this](const std::string& path) { return isVolumeMissing(path); });
}

void KelvaneRestoreTabController::chooseRestoreLocation() {
    if (!prefs_.connected())
        return; // lost since the answer
    const std::string message = prefs_.text("Select destination for restored files:");
    panel_ =
        new QFileDialog(ui_->restoreBrowser->window(), QString::fromStdString(message), QDir::homePath());
    panel_->setOption(QFileDialog::DontUseNativeDialog);
    panel_->setOption(QFileDialog::ShowDirsOnly);
    panel_->setFileMode(QFileDialog::Directory);
    panel_->setLabelText(QFileDialog::Accept, prefs_.qtext("Select"));
    panel_->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(panel_, &QDialog::finished, &context_,
                     [this](int returnCode) { openPanelDidEnd(returnCode); });
    panel_->open();
}

void KelvaneRestoreTabController::openPanelDidEnd(int returnCode) {
    const QStringList folders = panel_->selectedFiles();
    if (returnCode != QDialog::Accepted || folders.empty())
        return;
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::canonical(folders.front().toStdString(), error);
    if (error)
        return logError("Cannot restore to %@: %@", folders.front().toStdString(), error.message());
    restoreToPath(enteredPath(folder, *prefs_.fileServices().fileSystem().volumes()));
}

void KelvaneRestoreTabController::restoreToDesktop() {
    const std::string desktop = desktopFolder();
    if (desktop.empty())
        return;
    const std::string folder =
        desktop + '/' + prefs_.text("Restore-to-Desktop Folder", "Kelvane Restored Files");
    std::error_code error;
    if (!prefs_.fileServices().fileSystem().exists(folder))
        std::filesystem::create_directories(folder, error);
    if (error)
        return KelvaneCLog("Cannot create the folder %@: %@", folder, error.message());
    restoreToPath(enteredPath(folder, *prefs_.fileServices().fileSystem().volumes()));
}

void KelvaneRestoreTabController::closeSheets() {
    if (alert_)
        alert_->reject();
    if (panel_)
        panel_->reject();
}

} // namespace kelvane
