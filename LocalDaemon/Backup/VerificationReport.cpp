// Reports the verification to the user.

#include "Foundation/Format.h"
#include "LocalDaemon/Backup/DamageReport.h"
#include "LocalDaemon/Backup/Verification.h"
#include "Support/Logging.h"

#include <utility>

namespace kelvane {
namespace {

constexpr const char* lossAlert = "damage_forgotten";

} // namespace

void Verification::reportLoss() const {
    if (!record_.isLost())
        return state_->alerts()->withdraw(lossAlert);
    state_->alerts()->raise(
        {.kind = lossAlert,
         .severity = "warning",
         .title = "The record of damage in the backup was lost.",
         .body = options_.path +
                 " was damaged. Everything in the backup is read again; until that is done, a "
                 "file that is damaged in the backup may look as if it were not."});
}

void Verification::tellOutcome(const std::string& progress) {
    const DamageReport report(*keeper_->index(), record_.damage);
    isStoredDamaged_ = report.storedCount > 0;
    const bool isDamaged = isDamageKnown(record_);
    record_.lastOutcome =
        report.outcome(record_) + (progress.empty() ? formatText("; %u of %u parts read in this round",
                                                                 record_.partsRead, options_.parts)
                                                    : progress);
    state_->setDamage(isDamaged, report.fileCount());
    tell(std::nullopt);
    if (!isDamaged)
        return state_->alerts()->withdraw(damageAlert);
    if (std::exchange(loggedDamage_, record_.damage) != record_.damage)
        logError("%@.", record_.lastOutcome);
    Alert alert = report.alert(record_, canRepair());
    if (mayBeSetAside() && !record_.areAllOnDisk)
        alert.actions = {"store-again:"};
    state_->alerts()->raise(alert);
}

void Verification::tell(std::optional<double> progress) {
    state_->setVerification(record_.lastVerified, record_.lastOutcome);
    state_->setVerificationProgress(progress);
}

} // namespace kelvane
