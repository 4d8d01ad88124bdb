// Creates the restore jobs for the selection and shows their progress.

#include "Common/RestoreStatus.h"
#include "Foundation/Format.h"
#include "PreferencePane/Restore/RestoreTabController.h"
#include "PreferencePane/Restore/ui_RestoreProgressView.h"
#include "PreferencePane/Services/BusySheet.h"
#include "Support/FileSizeFormatter.h"
#include "Support/Logging.h"

namespace kelvane {
namespace {

constexpr std::uint32_t latestVersion = 0;

} // namespace

// Shows the progress before anything else. The link may be lost during any call; jobs requested before that
// stay with the daemon.
void KelvaneRestoreTabController::restoreToPath(const std::optional<std::string>& folder) {
    counts_.begin();
    progress_->restorePauseButton->setChecked(false);
    showNoCountsYet();
    progress_->restoreProgress->setIndeterminate(true);
    prefs_.showRestoreProgress(true);
    progress_->restoreProgress->startAnimation();
    const auto ask = [&](std::size_t item) {
        const std::string& path = restoredPaths_[item];
        const auto daemon = prefs_.proxy();
        bool isAnswered = false;
        if (!daemon)
            return false;
        const std::uint32_t job =
            daemon
                ->invoke("restoreFile:toPath:version:priority:",
                         {path, restoreTarget(path, folder), latestVersion, restorestatus::defaultPriority},
                         &isAnswered)
                .uint32Value();
        if (isAnswered)
            KelvaneCLog("created restore job %d. %@ -> %@", job, path, folder ? Value(*folder) : Value());
        return isAnswered;
    };
    const std::size_t asked =
        workShowingProgress(prefs_, prefs_.text("Preparing to restore…"), restoredPaths_.size(), ask);
    if (asked < restoredPaths_.size())
        logError(
            "Created restore jobs for only %llu of %llu items: cancelled, or connection to the daemon lost",
            asked, restoredPaths_.size());
}

void KelvaneRestoreTabController::restoredPendingCount(std::uint32_t count) {
    KelvaneCLog("restoredPendingCount %d", count);
    const bool isNewTotal = counts_.setPendingCount(count);
    if (count == 0)
        return prefs_.showRestoreProgress(false);
    if (isNewTotal)
        progress_->restoreProgress->setIndeterminate(false);
    showRestoreCounts();
}

void KelvaneRestoreTabController::showNoCountsYet() {
    progress_->restoreStatusField->setText(prefs_.qtext("Preparing to restore…"));
    progress_->awaitingRestoreLabel->hide();
    progress_->awaitingRestoreField->clear();
    progress_->restoreProgress->setValue(0);
}

void KelvaneRestoreTabController::showRestoreCounts() {
    const std::string size =
        FileSizeFormatter::sharedFileSizeAbbrevFormatter().stringFromNumber(restoreFileSize_).value_or("");
    const std::string restoring =
        formatTranslated(prefs_.text("Restore restoring formatter", "Restoring item %d of %d, %@"),
                         counts_.done() + 1, counts_.initialPendingCount(), size);
    KelvaneCLog("restoredPendingCount restoringString %@", restoring);
    progress_->restoreStatusField->setText(QString::fromStdString(restoring));
    const std::string pending =
        formatTranslated(prefs_.text("Restore awaiting formatter", "%d files"), counts_.pendingCount());
    KelvaneCLog("restoredPendingCount pendingString %@", pending);
    progress_->awaitingRestoreField->setText(QString::fromStdString(pending));
    progress_->awaitingRestoreLabel->show();
    progress_->restoreProgress->setValue(counts_.percent());
}

// The next restore starts without a pause and without the counts of this one, whoever starts it. The pane has
// unsubscribed from the daemon's progress by now.
void KelvaneRestoreTabController::progressDisappeared() {
    progress_->restorePauseButton->setChecked(false);
    showNoCountsYet();
    registeredForUIEvents_ = false;
}

// The daemon continues; only the display stops.
void KelvaneRestoreTabController::restorePauseAction() {
    restorePaused_ = !restorePaused_;
    if (!restorePaused_)
        progress_->restoreProgress->stopAnimation();
    progress_->restoreProgress->setIndeterminate(restorePaused_);
    if (restorePaused_)
        progress_->restoreProgress->startAnimation();
}

void KelvaneRestoreTabController::restoreCancelAction() {
    if (const auto daemon = prefs_.proxy())
        daemon->call<"cancelAllRestoreJobs">();
    prefs_.showRestoreProgress(false);
}

} // namespace kelvane
