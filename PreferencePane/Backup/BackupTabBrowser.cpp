// Manual mode: the browser of the local disk, in which the user includes and excludes items.

#include "Foundation/PathComponents.h"
#include "PreferencePane/Backup/BackupTabController.h"
#include "PreferencePane/Backup/ui_ManualBackupView.h"
#include "PreferencePane/Browser/BrowserPaths.h"
#include "PreferencePane/Services/BusySheet.h"

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

// A folder is watched before it is read, so that no change in between is missed. An empty answer gives an
// empty column; when the link is lost during the call, the rows stay.
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
    bool isAnswered = false;
    const Value dictionaries = daemon->invoke("childrenDictionariesForPath:", {""}, &isAnswered);
    if (!isAnswered)
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
    bool isAnswered = false;
    const Value colors = daemon->invoke("backupColorsForFiles:", {pathsOf(files)}, &isAnswered);
    if (!isAnswered)
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

// Reloads the open folders once after changes that the daemon did not report: while it was not connected, in
// the other mode, or when the exclude policy changed. Waits for that policy, because it decides which items
// are shown. The first column has its own triggers.
void KelvaneBackupTabController::refreshFolders() {
    if (!areFoldersStale_ || !isExcludePolicyRead_ || !manualBackupMode_ || !prefs_.connected())
        return;
    areFoldersStale_ = false;
    for (int column = 1; column <= manual_->manualBrowser->lastColumn(); ++column)
        manual_->manualBrowser->reloadColumn(column);
    if (!chosenPaths_.empty() || !manual_->manualBrowser->selectedFilePaths().empty())
        manualBrowserAction();
}

void KelvaneBackupTabController::manualBrowserAction() {
    if (!prefs_.flags().manualToggleButtonEnable)
        return;
    std::vector<std::string> paths = manual_->manualBrowser->selectedFilePaths();
    if (paths.empty())
        manual_->manualToggleButton->setEnabled(false);
    else if (prefs_.prefPaneAccessAuthorized())
        manual_->manualToggleButton->setEnabled(true);
    const auto daemon = prefs_.proxy();
    FileNodeList nodes;
    MarkCounts marks;
    const auto look = [&](std::size_t item) {
        marks.add(nodes.emplace_back(KelvaneFileNode::fileNodeForPath(paths[item], daemon)));
        return daemon && prefs_.proxy() == daemon;
    };
    if (workShowingProgress(prefs_, prefs_.text("Looking at what is selected…"), paths.size(), look) !=
        paths.size())
        return;
    chosenPaths_ = std::move(paths);
    chosenNodes_ = std::move(nodes);
    chosenMarks_ = marks;
    if (!chosenPaths_.empty())
        showToggleState(chosenMarks_.toggleState());
}

void KelvaneBackupTabController::showToggleState(std::int32_t state) {
    prefs_.flags().manualToggleButtonState = state;
    const std::string text = state == togglestate::remove
                                 ? prefs_.text("Do not backup", "Do not back this up")
                                 : prefs_.text("Add to backup", "Back this up");
    manual_->manualToggleButton->setText(QString::fromStdString(text));
}

// A selected item may have been deleted, in which case its parent folder is selected. The button's text was
// not about that folder, so the click only updates it. The whole selection is in one column.
void KelvaneBackupTabController::manualToggleAction() {
    const std::vector<std::string> paths = manual_->manualBrowser->selectedFilePaths();
    if (paths != chosenPaths_)
        return manualBrowserAction();
    const auto daemon = prefs_.proxy();
    if (paths.empty() || !daemon)
        return;
    const int column = columnOf(paths.front());
    // Stops when the link was replaced: the selection has been read again on the new one.
    static_cast<void>(workShowingProgress(prefs_, prefs_.text("Changing your backup…"), paths.size(),
                                          [&](std::size_t item) {
                                              if (prefs_.proxy() == daemon)
                                                  toggle(item, column);
                                              return prefs_.proxy() == daemon;
                                          }));
}

// The button's state is that of the whole selection and may differ for the next path. Only this item's node
// is asked for again, because the other items have not been touched. The button's state is read a second time
// after the path was added, because the reload may have changed it.
void KelvaneBackupTabController::toggle(std::size_t item, int column) {
    const std::string path = chosenPaths_[item];
    const PaneFlags& flags = prefs_.flags();
    const auto state = prefs_.backupState();
    if (!flags.manualToggleButtonEnable)
        return;
    if (flags.manualToggleButtonState == togglestate::add) {
        state->addFileToBackup(path);
        throttle_.columnChanged(column);
    }
    if (flags.manualToggleButtonState == togglestate::remove && chosenNodes_[item]) {
        state->removeFileFromBackup(path);
        throttle_.columnChanged(column);
    }
    const auto daemon = prefs_.proxy();
    FileNodeRef node = KelvaneFileNode::fileNodeForPath(path, daemon);
    if (!daemon || prefs_.proxy() != daemon)
        return;
    chosenMarks_.remove(chosenNodes_[item]);
    chosenMarks_.add(node);
    chosenNodes_[item] = std::move(node);
    showToggleState(chosenMarks_.toggleState());
}

// -1: no column shows the path.
int KelvaneBackupTabController::columnOf(const std::string& path) const {
    return columnForPath(path, *manual_->manualBrowser, *prefs_.fileServices().fileSystem().volumes());
}

} // namespace kelvane
