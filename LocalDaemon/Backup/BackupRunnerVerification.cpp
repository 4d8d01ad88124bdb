// When the backup is verified, and what comes of it.

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

// Another disk may have taken the place of the one that was there. Why an ordered one cannot be done, its try
// says.
void BackupRunner::verify(const StopSignal& stop) {
    ResticOutcome outcome = keeper_->repository().waitForAnswer(stop);
    if (outcome.succeeded())
        outcome = connect(stop);
    if (outcome.succeeded() || !state_->verificationOrders().areTried())
        outcome = verification_->performDue(stop);
    const std::scoped_lock guard(mutex_);
    // What is damaged waits neither for the usual interval nor until something else is to be backed up.
    if (outcome.succeeded() && verification_->isRepairDue())
        wanted_.insert(everything);
    work_ = {};
    if (!outcome.succeeded() && outcome.trouble != ResticTrouble::Stopped)
        isConnected_ = false; // connecting tells what is wrong
}

// Looks whether what has been backed up is there, and stores again what is not. Whoever waits for the backup
// waits for that as well.
ResticOutcome BackupRunner::verifyStored(bool isAwaited, const StopSignal& stop) {
    verification_->noteChange();
    for (int round = 0; round < 2 && verification_->isStructureDue(isAwaited); ++round) {
        if (!beginYieldingToRestores())
            return {};
        const ResticOutcome checked = verification_->checkStructure(stop);
        endYieldingToRestores();
        if (!checked.succeeded() || !verification_->isRepairDue())
            return {}; // looked at again as soon as nothing else is to be done
        if (ResticOutcome outcome = backUpEverything(stop); !outcome.succeeded())
            return outcome;
        isAwaited = true;
    }
    return {};
}

} // namespace kelvane
