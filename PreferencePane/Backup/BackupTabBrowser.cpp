// Manual mode: the browser of the live disk, and the marks that a person sets in it.

#include "Foundation/PathComponents.h"
#include "PreferencePane/Backup/BackupTabController.h"
#include "PreferencePane/Backup/BackupTabRules.h"
#include "PreferencePane/Backup/ui_ManualBackupView.h"
#include "PreferencePane/Browser/BrowserPaths.h"
#include "Support/PathHelpers.h"

#include <algorithm>

namespace kelvane {
namespace {

Value pathsOf(const std::vector<VisibleFile>& files) {
    Array paths;
    paths.reserve(files.size());
    for (const VisibleFile& file : files)
        paths.emplace_back(file.path);
    return paths;
}

} // namespace

// What is watched is watched before it is read, so that nothing changes unseen in between. A link that is
// lost in the middle leaves the rows as they are.
std::optional<BrowserRows> KelvaneBackupTabController::createRowsForColumn(ColumnBrowser& browser,
                                                                           int column) {
    const auto daemon = prefs_.proxy();
    if (!daemon)
        return std::nullopt;
    const std::string folder = columnToPath(column - 1, browser);
    if (!folder.empty())
        watcher_->watchAllOfPath(folder, *prefs_.fileServices().fileSystem().volumes());
    auto rows = column == 0 && tabsEnabled_ ? volumeRows(daemon) : itemRows(folder, daemon);
    return prefs_.proxy() == daemon ? rows : std::nullopt;
}

std::optional<BrowserRows>
KelvaneBackupTabController::volumeRows(const std::shared_ptr<KelvaneProxy>& daemon) const {
    const Value dictionaries = daemon->call<"childrenDictionariesForPath:">("");
    if (dictionaries.isAbsent())
        return std::nullopt;
    const auto volumes = prefs_.fileServices().fileSystem().volumes();
    const QIcon disk = qIcon(prefs_.fileServices().iconOfDisk());
    BrowserRows rows;
    for (const FileNodeRef& node : KelvaneFileNode::fileNodesForDictionaries(dictionaries)) {
        const std::string name = node->fileName();
        if (name.empty() || node->isMissing() || (name == "/" && prefs_.existsDriveMountedAtSVD()))
            continue;
        VolumeRow row = volumeRowFor(name, *volumes);
        KelvaneBrowserCell& cell = rows.emplace_back(std::move(row.title), std::move(row.path));
        cell.setImage(disk);
        const FileNodeRef known = KelvaneFileNode::fileNodeForPath(name, daemon);
        setBackupColor(cell, known ? known->backupColor() : Backup_Color_Undefined, prefs_);
    }
    return rows;
}

std::optional<BrowserRows> KelvaneBackupTabController::itemRows(const std::string& folder,
                                                                const std::shared_ptr<KelvaneProxy>& daemon) {
    const std::vector<VisibleFile> files = visibleFiles_.visibleFilesAtPath(
        folder, [this](const std::string& path) { return isPathExcludedByPolicy(path); });
    const Value colors = daemon->call<"backupColorsForFiles:">(pathsOf(files));
    if (colors.isAbsent())
        return std::nullopt;
    BrowserRows rows;
    const std::size_t count = std::min(files.size(), colors.array().size());
    rows.reserve(count);
    for (std::size_t item = 0; item < count; ++item) {
        const VisibleFile& file = files[item];
        KelvaneBrowserCell& cell = rows.emplace_back(lastPathComponent(file.path), file.path);
        cell.setLeaf(!file.isDirectory);
        setBackupColor(cell, colors.array()[item].int32Value(), prefs_);
    }
    return rows;
}

IconHandle KelvaneBackupTabController::imageForCell(const KelvaneBrowserCell& cell) {
    return prefs_.fileServices().iconOfFile(cell.getFilePath());
}

// What has changed where no notice of it could come: while the daemon was away, in the other mode, or by
// another policy. The first column has its own occasions.
void KelvaneBackupTabController::reloadFolders() {
    if (!manualBackupMode_ || !prefs_.connected())
        return;
    for (int column = 1; column <= manual_->manualBrowser->lastColumn(); ++column)
        manual_->manualBrowser->reloadColumn(column);
}

void KelvaneBackupTabController::manualBrowserAction() {
    const std::vector<std::string> paths = chosenPaths_ = manual_->manualBrowser->selectedFilePaths();
    if (!prefs_.flags().manualToggleButtonEnable)
        return;
    if (paths.empty())
        return manual_->manualToggleButton->setEnabled(false);
    if (prefs_.prefPaneAccessAuthorized())
        manual_->manualToggleButton->setEnabled(true);
    const auto daemon = prefs_.proxy();
    FileNodeList nodes;
    for (const std::string& path : paths)
        nodes.push_back(KelvaneFileNode::fileNodeForPath(path, daemon));
    if (daemon && prefs_.proxy() == daemon)
        showToggleState(toggleStateFor(nodes));
}

void KelvaneBackupTabController::showToggleState(std::int32_t state) {
    prefs_.flags().manualToggleButtonState = state;
    const std::string text = state == togglestate::remove
                                 ? prefs_.text("Do not backup", "Do not back this up")
                                 : prefs_.text("Add to backup", "Back this up");
    manual_->manualToggleButton->setText(QString::fromStdString(text));
}

// What was chosen may have gone from the disk, which leaves the folder that held it selected: the button has
// not spoken of that.
void KelvaneBackupTabController::manualToggleAction() {
    const std::vector<std::string> paths = manual_->manualBrowser->selectedFilePaths();
    if (paths != chosenPaths_)
        return manualBrowserAction();
    for (const std::string& path : paths)
        toggle(path);
}

// The state is that of the whole selection and may be another for the next path. It is read again after the
// path was added, as whoever is told of the reload may have changed it.
void KelvaneBackupTabController::toggle(const std::string& path) {
    const FileNodeRef node = KelvaneFileNode::fileNodeForPath(path, prefs_.proxy());
    const PaneFlags& flags = prefs_.flags();
    const auto state = prefs_.backupState();
    if (!state || !flags.manualToggleButtonEnable)
        return;
    if (flags.manualToggleButtonState == togglestate::add) {
        state->addFileToBackup(path);
        diskPathChanged(path);
    }
    if (flags.manualToggleButtonState == togglestate::remove && node) {
        state->removeFileFromBackup(path);
        diskPathChanged(path);
    }
    manualBrowserAction();
}

void KelvaneBackupTabController::diskPathChanged(const std::string& path) {
    const auto volumes = prefs_.fileServices().fileSystem().volumes();
    throttle_.columnChanged(columnForPath(path, *manual_->manualBrowser, *volumes));
}

} // namespace kelvane
