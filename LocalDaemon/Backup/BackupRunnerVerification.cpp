// When the repository is verified, and what follows from the result.

#include "LocalDaemon/Backup/BackupRunner.h"

namespace kelvane {

void BackupRunner::verifyNow() {
    state_->verificationOrders().add();
    const std::scoped_lock guard(mutex_);
    isNoted_ = true;
    changed_.notify_all();
}

void BackupRunner::storeAgain() {
    verification_->confirmSettingAside();
    state_->backupOrders().add();
    backUpNow(everything);
}

// Connects first, since a different disk may be mounted now. A requested verification is attempted even
// if that fails: its own failure tells the user the reason.
void BackupRunner::verify(const StopSignal& stop) {
    ResticOutcome outcome = keeper_->repository().waitForAnswer(stop);
    if (outcome.succeeded())
        outcome = connect(stop);
    if (outcome.succeeded() || !state_->verificationOrders().areTried())
        outcome = verification_->performDue(stop);
    const std::scoped_lock guard(mutex_);
    // Damaged data is stored again without waiting for the interval or for pending files.
    if (outcome.succeeded() && verification_->isRepairDue())
        wanted_.insert(everything);
    work_ = {};
    if (!outcome.succeeded() && outcome.trouble != ResticTrouble::Stopped)
        isConnected_ = false; // Connecting again determines the reason.
}

// Checks that the new data is in the repository, and stores it again if not. A requested backup
// (`isAwaited`) is complete only after that.
ResticOutcome BackupRunner::verifyStored(bool isAwaited, const StopSignal& stop) {
    verification_->noteChange();
    for (int round = 0; round < 2 && verification_->isStructureDue(isAwaited); ++round) {
        if (!beginYieldingToRestores())
            return {};
        const ResticOutcome checked = verification_->checkStructure(stop);
        endYieldingToRestores();
        if (!checked.succeeded() || !verification_->isRepairDue())
            return {}; // Checked again as soon as no other task is due.
        if (ResticOutcome outcome = backUpEverything(stop); !outcome.succeeded())
            return outcome;
        isAwaited = true;
    }
    return {};
}

} // namespace kelvane
