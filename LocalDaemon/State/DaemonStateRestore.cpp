// What panes hear of files that are being restored.

#include "Common/StandingAlert.h"
#include "Foundation/Format.h"
#include "LocalDaemon/State/DaemonState.h"
#include "LocalDaemon/State/RestoreProgress.h"
#include "Support/MessageLine.h"

namespace kelvane {
namespace {

constexpr const char* failureAlert = "restore_incomplete";

} // namespace

void DaemonState::setRestoreProgress(const RestoreProgress& progress) {
    const std::scoped_lock guard(mutex_);
    const RestoreProgress before = std::exchange(restore_, progress);
    if ((before.job == 0) != (progress.job == 0))
        announce();
    const auto observer = observer_.lock();
    if (!observer || before == progress)
        return;
    std::vector<std::uint32_t> codes;
    if (before.job == 0)
        codes.push_back(restoreprogress::begin);
    // The size is shown with the count that comes after it.
    const bool isOtherFile = before.file != progress.file || before.fileSize != progress.fileSize;
    if (progress.job != 0 && (isOtherFile || before.job == 0))
        codes.insert(codes.end(), {restoreprogress::currentFile, restoreprogress::currentFileSize});
    codes.push_back(restoreprogress::pendingCount);
    observer->restoreProgressed(codes);
}

void DaemonState::refuseRestore(const std::string& reason) {
    raiseAlert({"restore_refused", "error", "A restore was refused.", reason});
    const std::scoped_lock guard(mutex_);
    if (const auto observer = observer_.lock())
        observer->restoreProgressed({restoreprogress::pendingCount});
}

RestoreProgress DaemonState::restoreProgress() const {
    const std::scoped_lock guard(mutex_);
    return restore_;
}

void DaemonState::endRestore(const std::vector<RestoreFailure>& failures) {
    {
        const std::scoped_lock guard(mutex_);
        if (const auto observer = observer_.lock())
            observer->restoreEnded(
                alertString({std::string(restoreprogress::closingAlert), "information", "", ""}));
    }
    if (failures.empty())
        return withdrawAlert(failureAlert);
    raiseAlert({failureAlert,
                "warning",
                "Some files could not be restored.",
                formatText("%llu of them, among them %@: %@. The log names them all.", failures.size(),
                           messageLine(failures.front().path), messageLine(failures.front().reason)),
                {std::string(dismissAction)}});
}

void DaemonState::addPane(PaneObserver& pane) const {
    const std::scoped_lock guard(mutex_);
    if (restore_.job != 0)
        pane.restoreProgressed(
            {restoreprogress::currentFile, restoreprogress::currentFileSize, restoreprogress::pendingCount});
}

void DaemonState::addStateHandler(PaneObserver& pane) const {
    pane.setStateHandler(true);
    addPane(pane);
}

} // namespace kelvane
