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

// Finds out whether the repository can give back what is in it, tells what cannot be given back, and makes
// the next backup store it again where the disk still has it.
//
// The structure (that all packs are there, and all that files consist of is in them) is looked at whenever
// that is due after a backup, and again and again while something is missing; the data is read part by part,
// so that all of it is read within 90 days. How far that has come, and what is damaged, is kept in a file.
//
// Packs that are missing leave restic's index, so that their contents can be stored again, and whatever pack
// stands in the repository unnamed is taken into the index: one that was away for a while loses nothing.
//
// Belongs to the backup's thread, which it blocks, except for `confirmSettingAside`.
class Verification {
public:
    using Clock = std::chrono::steady_clock;

    struct Options {
        std::string path; // of the file
        unsigned parts = 240;
        // For all parts, if the daemon always runs; what it has missed follows as soon as it can.
        std::chrono::seconds round = std::chrono::days(80);
        // After it could not find out: nobody answers, for one.
        std::chrono::milliseconds retry = std::chrono::hours(1);
    };

    Verification(std::shared_ptr<DaemonState> state, std::shared_ptr<IndexKeeper> keeper, Options options);

    // Damaged packs may be moved away although files that only the backup has lose their whole parts with
    // them. Any thread.
    void confirmSettingAside() { maySetAside_ = true; }

    // How long until there is something to do; 0: now.
    [[nodiscard]] std::chrono::milliseconds timeUntilDue() const;
    // Does one thing that is due: looks at the structure or reads a part. An outcome that did not succeed:
    // nothing is known that was not known before.
    [[nodiscard]] ResticOutcome performDue(const StopSignal& stop);

    // A backup has been made, or something has been forgotten.
    void noteChange();
    // It costs at most a twentieth of the time, unless somebody waits for it.
    [[nodiscard]] bool isStructureDue(bool isAwaited) const;
    [[nodiscard]] ResticOutcome checkStructure(const StopSignal& stop);

    // Whether a backup can store again what is damaged, after `prepareRepair`.
    [[nodiscard]] bool canRepair() const;
    // The same, unless the last try has failed: then the next backup tries again, in its own time.
    [[nodiscard]] bool isRepairDue() const { return canRepair() && !hasRepairFailed_; }
    [[nodiscard]] ResticOutcome prepareRepair(const StopSignal& stop);
    // The next whole backup has to look at every file.
    [[nodiscard]] bool mustStoreAgain() const { return record_.mustStoreAgain; }
    void noteStoredAgain();
    // Some of what is on the disk stays damaged whatever the backup does.
    [[nodiscard]] bool isBeyondRepair() const { return isStoredDamaged_ && !canRepair(); }

private:
    [[nodiscard]] CheckReport checkWithTrueIndex(const StopSignal& stop);
    [[nodiscard]] bool mustRenewIndex(const CheckReport& report) const;
    [[nodiscard]] ResticOutcome renewIndex(const StopSignal& stop);
    // Not read, and no trouble: the index names packs that are not there.
    [[nodiscard]] ResticOutcome readPart(unsigned part, unsigned parts, const StopSignal& stop);
    [[nodiscard]] ResticOutcome readNextPart(const StopSignal& stop);
    [[nodiscard]] ResticOutcome readAll(const StopSignal& stop);
    // Takes over what is true at the second look.
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
    std::optional<CheckReport> known_; // what the damage was made of
    std::string locatedIn_;            // the newest snapshot of that time
    std::set<std::string> leftOut_;    // packs that the index could not take in
    Clock::time_point leftOutUntil_;
    bool isStoredDamaged_ = false; // files that are on the disk as well
    bool isStructureWanted_ = true;
    bool hasRepairFailed_ = false;
    unsigned orderedPartsRead_ = 0;
    Clock::time_point structureChecked_;
    Clock::time_point structureNotBefore_;
    Clock::time_point notBefore_;
};

} // namespace kelvane
