// Automatic mode: the list of exclusions.

#include "PreferencePane/Backup/BackupTabController.h"
#include "PreferencePane/Backup/ChoosePanel.h"
#include "PreferencePane/Backup/ui_AutoBackupView.h"
#include "Support/Logging.h"

namespace kelvane {
namespace {

void enable(QWidget& control, const std::optional<bool>& isEnabled) {
    if (isEnabled)
        control.setEnabled(*isEnabled);
}

} // namespace

void KelvaneBackupTabController::folderChanged(const std::string& /*path*/) {
    const auto daemon = prefs_.proxy();
    if (manualBackupMode_ || !daemon)
        return;
    const Value files = daemon->call<"excludedFiles:">("/");
    if (files.isAbsent())
        return;
    auto_->excludeTable->setNodes(KelvaneFileNode::fileNodesForDictionaries(files));
    tableViewSelectionDidChange();
}

void KelvaneBackupTabController::tableViewSelectionDidChange() {
    const ExcludeSegments segments =
        excludeSegmentsFor(auto_->excludeTable->selectedNodes().size(), prefs_.isInRecoverMode(),
                           prefs_.prefPaneAccessAuthorized());
    enable(*auto_->addSegment, segments.add);
    enable(*auto_->removeSegment, segments.remove);
    enable(*auto_->infoSegment, segments.info);
}

void KelvaneBackupTabController::excludeButtonAction(ExcludeSegment segment) {
    switch (segment) {
    case ExcludeSegment::Add: return chooseFiles();
    case ExcludeSegment::Remove: return removeSelected();
    case ExcludeSegment::Info: break;
    }
    const FileNodeList selected = auto_->excludeTable->selectedNodes();
    if (!selected.empty() && !selected.front()->path().empty())
        infoController_.setFileNode(
            KelvaneFileNode::fileNodeForPath(selected.front()->path(), prefs_.fileServices()));
}

void KelvaneBackupTabController::chooseFiles() {
    if (panel_)
        return;
    auto* const panel =
        new ChoosePanel(prefs_.mainView()->window(), prefs_.qtext("Select files to exclude from backup:"),
                        prefs_.qtext("Select"));
    panel_ = panel;
    panel->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(panel, &QDialog::finished, &context_, [this, panel](int returnCode) {
        panel_.clear();
        addFilesDidEnd(panel->filenames(), returnCode);
    });
    panel->open();
}

void KelvaneBackupTabController::addFilesDidEnd(const std::vector<std::string>& filenames, int returnCode) {
    if (returnCode == QDialog::Accepted && !filenames.empty())
        addExcludePaths(filenames);
}

// The list is updated when the daemon reports the change.
void KelvaneBackupTabController::addExcludePaths(const std::vector<std::string>& paths) {
    const auto volumes = prefs_.fileServices().fileSystem().volumes();
    for (const std::string& path : paths) {
        const std::optional<std::string> excluded = excludablePath(path, *volumes);
        const auto daemon = prefs_.proxy();
        if (!excluded || !daemon)
            continue;
        const std::uint32_t status = daemon->call<"excludeFileFromBackup:">(*excluded);
        if (status != 0)
            KelvaneCLog("excludeFileFromBackup failed: 0x%x for path:%@", status, path);
    }
}

// The rows stay until the daemon has reported the new exclusions.
void KelvaneBackupTabController::removeSelected() {
    for (const FileNodeRef& selected : auto_->excludeTable->selectedNodes()) {
        const std::string path = selected->path();
        const auto daemon = prefs_.proxy();
        if (!path.empty() && daemon)
            static_cast<void>(daemon->call<"unexcludeFileFromBackup:">(path));
    }
}

} // namespace kelvane
