#pragma once

#include "LocalDaemon/Backup/VerificationRecord.h"
#include "LocalDaemon/Index/IndexKeeper.h"
#include "LocalDaemon/Restic/RepositoryCheck.h"
#include "LocalDaemon/State/DaemonState.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace kelvane {

// Checks whether the contents of the repository can be restored, reports what cannot, and makes the next
// backup store it again where the disk still has it.
//
// The structure (all packs exist and contain every part of the files) is checked when that is due after a
// backup, and repeatedly while something is missing. The data is read part by part, so that all of it is
// read within 90 days. The progress and the damage are kept in a file.
//
// Missing packs are removed from restic's index, so that their contents can be stored again, and packs in
// the repository that the index does not list are added to it: a temporarily missing pack loses nothing.
//
// Belongs to the backup's thread, which it blocks, except for `confirmSettingAside`.
class Verification {
public:
    using Clock = std::chrono::steady_clock;

    struct Options {
        std::string path; // The path of the file.
        unsigned parts = 240;
        // The duration of a round through all parts if the daemon always runs; missed parts follow as
        // soon as possible.
        std::chrono::seconds round = std::chrono::days(80);
        // The wait after a failed verification, for example when the server does not respond.
        std::chrono::milliseconds retry = std::chrono::hours(1);
    };

    Verification(std::shared_ptr<DaemonState> state, std::shared_ptr<IndexKeeper> keeper, Options options);

    // Allows setting damaged packs aside although undamaged data of files that only the backup has is
    // lost. Any thread.
    void confirmSettingAside() { maySetAside_ = true; }

    // Returns the time until the next task; 0 when one is due.
    [[nodiscard]] std::chrono::milliseconds timeUntilDue() const;
    // Performs one due task: checks the structure, reads a part, or reads everything if requested. When
    // the outcome is a failure, nothing new is known.
    [[nodiscard]] ResticOutcome performDue(const StopSignal& stop);

    // Records that a backup was made, or something was forgotten.
    void noteChange();
    // Checks of the structure take at most a twentieth of the time, unless one is awaited.
    [[nodiscard]] bool isStructureDue(bool isAwaited) const;
    [[nodiscard]] ResticOutcome checkStructure(const StopSignal& stop);

    // Returns whether a backup can store damaged data again, after `prepareRepair`.
    [[nodiscard]] bool canRepair() const;
    // The same, but false after a failed attempt, which the next scheduled backup repeats.
    [[nodiscard]] bool isRepairDue() const { return canRepair() && !hasRepairFailed_; }
    [[nodiscard]] ResticOutcome prepareRepair(const StopSignal& stop);
    // The next complete backup has to read every file.
    [[nodiscard]] bool mustStoreAgain() const { return record_.mustStoreAgain; }
    void noteStoredAgain();
    // Some files on the disk stay damaged in the backup, and no backup can change that.
    [[nodiscard]] bool isBeyondRepair() const { return isStoredDamaged_ && !canRepair(); }

private:
    [[nodiscard]] CheckReport checkWithTrueIndex(const StopSignal& stop);
    [[nodiscard]] bool mustRenewIndex(const CheckReport& report) const;
    [[nodiscard]] ResticOutcome renewIndex(const StopSignal& stop);
    // Returns a success without reading when the index lists missing packs.
    [[nodiscard]] ResticOutcome readPart(unsigned part, unsigned parts, const StopSignal& stop);
    [[nodiscard]] ResticOutcome readNextPart(const StopSignal& stop);
    [[nodiscard]] ResticOutcome readAll(const StopSignal& stop);
    // Takes over the findings of the second check.
    [[nodiscard]] ResticOutcome take(const CheckReport& report, const StopSignal& stop);
    [[nodiscard]] ResticOutcome locate(const CheckReport& report, const StopSignal& stop);
    [[nodiscard]] bool isNews(const CheckReport& report) const;
    [[nodiscard]] bool isRoundAhead() const;
    [[nodiscard]] bool mayBeSetAside() const;
    [[nodiscard]] bool canSetAside() const;
    [[nodiscard]] Clock::time_point structureDue() const;
    void useRepository(const std::string& id);
    void reportLoss() const;
    void tellOutcome(const std::string& progress);
    void tell(std::optional<double> progress);
    [[nodiscard]] std::string newestSnapshot() const;

    const std::shared_ptr<DaemonState> state_;
    const std::shared_ptr<IndexKeeper> keeper_;
    const Options options_;
    const RepositoryCheck check_{keeper_->repository()};

    std::atomic<bool> maySetAside_{false};
    VerificationRecord record_;

    Damage loggedDamage_;
    std::optional<CheckReport> known_; // The report from which the damage was computed.
    // The newest snapshot when the damage was computed from `known_`; empty if there was no damage.
    std::string locatedIn_;
    std::set<std::string> leftOut_; // Packs that could not be added to the index.
    Clock::time_point leftOutUntil_;
    bool isStoredDamaged_ = false; // Some files on the disk are damaged in the backup.
    bool isStructureWanted_ = true;
    bool hasRepairFailed_ = false;
    unsigned orderedPartsRead_ = 0;
    Clock::time_point structureChecked_;
    Clock::time_point structureNotBefore_;
    Clock::time_point notBefore_;
};

} // namespace kelvane
