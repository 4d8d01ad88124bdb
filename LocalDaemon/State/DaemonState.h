#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restore/Staging/RestoreJob.h"
#include "LocalDaemon/Rules/BackupRules.h"
#include "LocalDaemon/Scan/FolderScan.h"
#include "LocalDaemon/State/AbsentDisks.h"
#include "LocalDaemon/State/Alerts.h"
#include "LocalDaemon/State/BackupNeed.h"
#include "LocalDaemon/State/BackupOrders.h"
#include "LocalDaemon/State/DaemonObserver.h"
#include "LocalDaemon/State/PlannedBackup.h"
#include "LocalDaemon/State/ServiceState.h"
#include "LocalDaemon/State/Settings/Configuration.h"
#include "LocalDaemon/State/Settings/Settings.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelvane {

struct BackupTotals {
    FileTotals backedUp;
    FileTotals pending;
};

// What the backup is at.
struct BackupActivity {
    bool isRunning = false;
    bool isInitial = false; // nothing at all has been backed up before
    std::optional<ServiceState> trouble;
    FileTotals done; // of what was waiting when it began
    std::string currentFile;
    std::optional<std::uint64_t> bytesPerSecond = {}; // of files that are read and saved; none: not known
    std::optional<std::uint64_t> secondsLeft = {};    // likewise
};

// The daemon's world, guarded by one mutex that is never held while anything is sent, written or looked for
// on the disk. Alerts and orders are parts with mutexes of their own. Any thread.
//
// Panes are told as DaemonObservers says: of the service state whenever it is another one, of changed
// folders, and of what is in the backup now and was not, or the other way round.
class DaemonState {
public:
    using Clock = Alerts::Clock;
    // Returns why the settings could not be saved; empty when they are.
    using SaveSettings = std::function<std::string(const Settings& settings, std::uint64_t version)>;
    using Rules = std::shared_ptr<const BackupRules>;
    using Index = std::shared_ptr<const BackupIndex>; // never null
    // These are called with the mutex held, so they take note and return.
    using RulesListener = std::function<void(const Rules& rules)>;
    using NeedListener = std::function<void(const BackupNeed& need)>; // whenever it may be another one

    DaemonState(Configuration configuration, Settings settings, Index index, SaveSettings save, Clock clock);

    // Also called with the mutex held.
    using PlanSource = std::function<PlannedBackup()>;
    void setPlanSource(PlanSource source);
    void setRulesListener(RulesListener listener);
    void setNeedListener(NeedListener listener);

    [[nodiscard]] const Configuration& configuration() const { return configuration_; }
    [[nodiscard]] std::int64_t now() const; // seconds since 1970
    [[nodiscard]] const std::shared_ptr<Alerts>& alerts() const { return alerts_; }
    // What is backed up.
    [[nodiscard]] Index index() const;
    // `changed`: real paths of which it says another thing than before.
    void setIndex(Index index, const std::vector<std::string>& changed);
    // Whether the index is that of the repository, as far as this daemon can know: not before the repository
    // was asked, nor after a backup whose snapshot has not been listed. `trouble` says why the last try to
    // make it so failed; empty when it did not.
    void setIndexCurrent(bool isCurrent, const std::string& trouble = {});
    [[nodiscard]] bool isIndexCurrent() const;
    [[nodiscard]] std::string indexTrouble() const;
    [[nodiscard]] BackupActivity activity() const;
    void setActivity(const BackupActivity& activity);
    [[nodiscard]] BackupNeed backupNeed() const;
    // What the last failure was is not said any more once a backup is ordered.
    [[nodiscard]] BackupOrders& backupOrders() { return backupOrders_; }
    [[nodiscard]] std::vector<std::string> lossyLinks() const; // as in ScanReport
    // The last backup could not read some of what waits, which calls for no other until something changes:
    // `changes` is the need's count when it began; none: it has read everything.
    void noteUnread(std::optional<std::uint64_t> changes);
    // As they are now; never null.
    [[nodiscard]] Rules rules() const;
    [[nodiscard]] Settings settings() const;
    // One of them.
    template <class T>
    [[nodiscard]] T setting(T Settings::*which) const {
        const std::scoped_lock guard(mutex_);
        return settings_.*which;
    }
    // Saved when it returns, if anything has changed. A failure to save is logged and raised as an alert.
    void changeSettings(const std::function<void(Settings&)>& change);

    // What is away with its disk, also what a person has given up.
    void setAbsences(const Absences& away);
    // Less what a person has given up. Nothing is backed up from there, and nothing counts as deleted.
    [[nodiscard]] Absences absences() const;

    // Rounded up, so that 0 says that nothing is paused.
    [[nodiscard]] std::uint32_t pausedMinutes() const;
    void setPausedMinutes(std::uint32_t minutes);

    [[nodiscard]] std::uint32_t serviceState() const;
    // Stands in front of what the daemon finds itself in until that is another one; 0 takes it back.
    void overrideServiceState(std::uint32_t code);
    // Pretends that the account is over its quota, or is not; none: as it is.
    void setOverQuotaForTesting(std::optional<bool> overQuota);

    [[nodiscard]] Value stateDictionary() const;
    [[nodiscard]] BackupTotals totals() const;
    [[nodiscard]] FileTotals found() const;

    void takeReport(const ScanReport& report);
    // Raises or withdraws the alert that nothing is selected for backup.
    void checkSelection();
    // The clock or the orders have moved: a pause may be over.
    void refresh();

    // What the verification has found out. None: it has never come to an end.
    void setVerification(std::optional<std::chrono::system_clock::time_point> date,
                         const std::string& outcome);
    // From 0 to 1; none: nothing is being verified.
    void setVerificationProgress(std::optional<double> progress);
    // `files`: those that cannot be given back as they were last backed up.
    void setDamage(bool isAnyKnown, std::uint64_t files);
    // To verify everything. Panes see one under way until it has been tried.
    [[nodiscard]] BackupOrders& verificationOrders() { return verificationOrders_; }

    // Panes are told what of it has changed.
    void setRestoreProgress(const RestoreProgress& progress);
    // Raises an alert, and has panes ask how many files are left: they show a restore from their order on.
    void refuseRestore(const std::string& reason);
    [[nodiscard]] RestoreProgress restoreProgress() const;
    // After the progress has no job any more: tells panes so, and of what could not be restored.
    void endRestore(const std::vector<RestoreFailure>& failures);
    // A pane that connects, or asks for states, while files are being restored is told how many are left.
    void addPane(const std::shared_ptr<DaemonObserver>& pane);
    void addStateHandler(DaemonObserver& pane) const;
    void dropPanes();

private:
    // With the mutex held.
    [[nodiscard]] bool hasPlace() const { return !configuration_.repository.location.empty(); }
    [[nodiscard]] bool isPaused() const;
    [[nodiscard]] bool isOverQuota() const;
    [[nodiscard]] FileTotals currentlyFound() const { return scan_ ? scan_->totals : FileTotals(); }
    [[nodiscard]] BackupTotals currentTotals() const;
    [[nodiscard]] Absences currentAbsences() const;
    [[nodiscard]] bool isWaiting() const;
    [[nodiscard]] bool isLooking() const;
    [[nodiscard]] bool needsBackup() const;
    [[nodiscard]] BackupNeed currentNeed() const;
    [[nodiscard]] std::uint32_t ownServiceState() const;
    [[nodiscard]] std::uint32_t currentServiceState() const;
    [[nodiscard]] std::string currentStatusText(std::uint32_t service) const;
    [[nodiscard]] Rules currentRules() const;
    void takeSettings(const Settings& settings);
    bool takeOtherRules();
    void announceRules(const BackupRules& before) const;
    void announceFiles(const std::vector<std::string>& paths) const;
    void announce();
    void tellOfRestore(DaemonObserver& pane) const;

    void addExtensions(Dictionary& state) const;
    void addSchedule(Dictionary& state) const;
    [[nodiscard]] std::string reasonNotToBackUp() const;

    struct VerificationStatus {
        std::optional<std::chrono::system_clock::time_point> date;
        std::string outcome;
        std::optional<double> progress;
        bool isDamageKnown = false;
        std::uint64_t damagedFiles = 0;
    };

    struct Override {
        std::uint32_t code;
        std::uint32_t inFrontOf;
    };

    const Configuration configuration_;
    const std::string destination_; // for people, without secrets; empty: none is configured
    const SaveSettings save_;
    const Clock clock_;
    const std::shared_ptr<DaemonObservers> panes_ = std::make_shared<DaemonObservers>();
    BackupOrders backupOrders_{[this] { refresh(); }};
    BackupOrders verificationOrders_{[this] { refresh(); }};
    const std::shared_ptr<Alerts> alerts_ = std::make_shared<Alerts>(panes_, clock_);

    mutable std::mutex mutex_; // guards what follows
    RulesListener rulesListener_;
    NeedListener needListener_;
    PlanSource planSource_;
    Index index_;
    bool isIndexCurrent_ = false;
    std::string indexTrouble_;
    BackupActivity activity_;
    std::uint64_t changes_ = 0;
    Settings settings_;
    Absences away_; // also what a person has given up
    Rules rules_;
    std::uint64_t settingsVersion_ = 0;
    std::optional<ScanReport> scan_;
    std::optional<bool> overQuotaForTesting_;
    std::optional<Override> override_;
    std::uint32_t announcedState_ = 0;
    RestoreProgress restore_;
    VerificationStatus verification_;
    std::optional<std::uint64_t> unreadAt_; // of `changes_`
};

} // namespace kelvane
