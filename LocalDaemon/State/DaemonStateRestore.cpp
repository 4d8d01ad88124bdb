// Notifies panes of files that are being restored.

#include "Common/RestoreStatus.h"
#include "Common/StandingAlert.h"
#include "Foundation/Format.h"
#include "LocalDaemon/State/DaemonState.h"
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
    if (before == progress)
        return;
    std::vector<std::uint32_t> codes;
    if (before.job == 0)
        codes.push_back(restoreprogress::begin);
    // Panes show the size with the next count.
    const bool isOtherFile = before.file != progress.file || before.fileSize != progress.fileSize;
    if (progress.job != 0 && (isOtherFile || before.job == 0))
        codes.insert(codes.end(), {restoreprogress::currentFile, restoreprogress::currentFileSize});
    codes.push_back(restoreprogress::pendingCount);
    panes_->tell([&](DaemonObserver& pane) { pane.restoreProgressed(codes); });
}

void DaemonState::refuseRestore(const std::string& reason) {
    alerts_->raise(
        {.kind = "restore_refused", .severity = "error", .title = "A restore was refused.", .body = reason});
    const std::scoped_lock guard(mutex_);
    panes_->tell([](DaemonObserver& pane) { pane.restoreProgressed({restoreprogress::pendingCount}); });
}

RestoreProgress DaemonState::restoreProgress() const {
    const std::scoped_lock guard(mutex_);
    return restore_;
}

void DaemonState::endRestore(const std::vector<RestoreFailure>& failures) {
    {
        const std::string end = alertString({.kind = std::string(restoreprogress::closingAlert),
                                             .severity = "information",
                                             .title = "",
                                             .body = ""});
        const std::scoped_lock guard(mutex_);
        panes_->tell([&end](DaemonObserver& pane) { pane.restoreEnded(end); });
    }
    if (failures.empty())
        return alerts_->withdraw(failureAlert);
    alerts_->raise(
        {.kind = failureAlert,
         .severity = "warning",
         .title = "Some files could not be restored.",
         .body = formatText("Failed files: %llu. The first one is %@: %@. The log lists all of them.",
                            failures.size(), messageLine(failures.front().path),
                            messageLine(failures.front().reason)),
         .actions = {std::string(dismissAction)}});
}

void DaemonState::addPane(const std::shared_ptr<DaemonObserver>& pane) {
    const std::scoped_lock guard(mutex_);
    panes_->add(pane);
    tellOfRestore(*pane);
}

void DaemonState::addStateHandler(DaemonObserver& pane) const {
    pane.setStateHandler(true);
    const std::scoped_lock guard(mutex_);
    tellOfRestore(pane);
}

void DaemonState::dropPanes() {
    panes_->clear();
}

void DaemonState::tellOfRestore(DaemonObserver& pane) const {
    if (restore_.job != 0)
        pane.restoreProgressed(
            {restoreprogress::currentFile, restoreprogress::currentFileSize, restoreprogress::pendingCount});
}

} // namespace kelvane
