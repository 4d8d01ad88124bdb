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

// The progress of the running backup.
struct BackupActivity {
    bool isRunning = false;
    bool isInitial = false; // There is no complete backup yet.
    std::optional<ServiceState> trouble;
    FileTotals done; // The saved files of those that were pending at the start.
    std::string currentFile;
    // The rate of reading and saving files; none when unknown.
    std::optional<std::uint64_t> bytesPerSecond = {};
    std::optional<std::uint64_t> secondsLeft = {}; // None when unknown.
};

// The state of the daemon, guarded by one mutex that is never held while anything is sent, written or
// read from the disk. Alerts and orders are parts with mutexes of their own. Any thread.
//
// Panes are notified as DaemonObservers describes: of each change of the service state, of changed
// folders, and of changes to the contents of the backup.
class DaemonState {
public:
    using Clock = Alerts::Clock;
    // Returns the reason why the settings could not be saved; empty on success.
    using SaveSettings = std::function<std::string(const Settings& settings, std::uint64_t version)>;
    using Rules = std::shared_ptr<const BackupRules>;
    using Index = std::shared_ptr<const BackupIndex>; // Never null.
    // Called with the mutex held, so these record the change and return.
    using RulesListener = std::function<void(const Rules& rules)>;
    // Called whenever the need may have changed.
    using NeedListener = std::function<void(const BackupNeed& need)>;

    DaemonState(Configuration configuration, Settings settings, Index index, SaveSettings save, Clock clock);

    // Also called with the mutex held.
    using PlanSource = std::function<PlannedBackup()>;
    void setPlanSource(PlanSource source);
    void setRulesListener(RulesListener listener);
    void setNeedListener(NeedListener listener);

    [[nodiscard]] const Configuration& configuration() const { return configuration_; }
    [[nodiscard]] std::int64_t now() const; // Seconds since 1970.
    [[nodiscard]] const std::shared_ptr<Alerts>& alerts() const { return alerts_; }
    // The contents of the backup.
    [[nodiscard]] Index index() const;
    // `changed`: real paths whose entries have changed.
    void setIndex(Index index, const std::vector<std::string>& changed);
    // Whether the index matches the repository, as far as this daemon can know: false before the
    // repository was opened, and after a backup whose snapshot has not been listed. `trouble`: why the
    // last attempt to update the index failed; empty if it did not.
    void setIndexCurrent(bool isCurrent, const std::string& trouble = {});
    [[nodiscard]] bool isIndexCurrent() const;
    [[nodiscard]] std::string indexTrouble() const;
    [[nodiscard]] BackupActivity activity() const;
    void setActivity(const BackupActivity& activity);
    [[nodiscard]] BackupNeed backupNeed() const;
    // The last failure is not shown from a request until it has been tried.
    [[nodiscard]] BackupOrders& backupOrders() { return backupOrders_; }
    [[nodiscard]] std::vector<std::string> lossyLinks() const; // As in ScanReport.
    // Records that the last backup could not read some pending files, which alone do not start another
    // one until something changes. `changes`: the need's count when that backup began; none when it has
    // read everything.
    void noteUnread(std::optional<std::uint64_t> changes);
    // Never null.
    [[nodiscard]] Rules rules() const;
    [[nodiscard]] Settings settings() const;
    // Returns one setting.
    template <class T>
    [[nodiscard]] T setting(T Settings::*which) const {
        const std::scoped_lock guard(mutex_);
        return settings_.*which;
    }
    // Changed settings are saved before it returns. A failure to save is logged and raised as an alert.
    void changeSettings(const std::function<void(Settings&)>& change);

    // Sets all absent paths, including those that the user has given up.
    void setAbsences(const Absences& away);
    // Returns the absent paths without those that the user has given up. They are not backed up, and
    // their files do not count as deleted.
    [[nodiscard]] Absences absences() const;

    // Rounded up, so that 0 means not paused.
    [[nodiscard]] std::uint32_t pausedMinutes() const;
    void setPausedMinutes(std::uint32_t minutes);

    [[nodiscard]] std::uint32_t serviceState() const;
    // Overrides the service state until the daemon's own state changes; 0 ends the override.
    void overrideServiceState(std::uint32_t code);
    // Simulates an account over or below its quota; none ends the simulation.
    void setOverQuotaForTesting(std::optional<bool> overQuota);

    [[nodiscard]] Value stateDictionary() const;
    [[nodiscard]] BackupTotals totals() const;
    [[nodiscard]] FileTotals found() const;

    void takeReport(const ScanReport& report);
    // Raises or withdraws the alert that nothing is selected for backup.
    void checkSelection();
    // Must be called from time to time, since a pause may be over, and after a change of the requests.
    void refresh();

    // Sets the result of the verification. `date`: none when no verification has been completed.
    void setVerification(std::optional<std::chrono::system_clock::time_point> date,
                         const std::string& outcome);
    // `progress`: from 0 to 1; none when no verification is running.
    void setVerificationProgress(std::optional<double> progress);
    // `files`: the number of files whose last saved version cannot be restored.
    void setDamage(bool isAnyKnown, std::uint64_t files);
    // The requests to verify everything. Panes show a verification as running until it has been tried.
    [[nodiscard]] BackupOrders& verificationOrders() { return verificationOrders_; }

    // Notifies panes of changes.
    void setRestoreProgress(const RestoreProgress& progress);
    // Raises an alert, and makes panes query how many files are left to restore, since they show a
    // restore as soon as it is requested.
    void refuseRestore(const std::string& reason);
    [[nodiscard]] RestoreProgress restoreProgress() const;
    // Must be called once the progress has no job: notifies panes of the end and of the files that could
    // not be restored.
    void endRestore(const std::vector<RestoreFailure>& failures);
    // A pane that connects, or enables states, during a restore is notified of the current file and of
    // the number of files that are left to restore.
    void addPane(const std::shared_ptr<DaemonObserver>& pane);
    void addStateHandler(DaemonObserver& pane) const;
    void dropPanes();

private:
    // The mutex must be held.
    [[nodiscard]] bool hasPlace() const { return !configuration_.repository.location.empty(); }
    [[nodiscard]] bool isPaused() const;
    [[nodiscard]] bool isOverQuota() const;
    [[nodiscard]] FileTotals currentlyFound() const { return scan_ ? scan_->totals : FileTotals(); }
    [[nodiscard]] BackupTotals currentTotals() const;
    [[nodiscard]] Absences currentAbsences() const;
    [[nodiscard]] bool isPending() const;
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
    const std::string destination_; // For the user, without secrets; empty when none is configured.
    const SaveSettings save_;
    const Clock clock_;
    const std::shared_ptr<DaemonObservers> panes_ = std::make_shared<DaemonObservers>();
    BackupOrders backupOrders_{[this] { refresh(); }};
    BackupOrders verificationOrders_{[this] { refresh(); }};
    const std::shared_ptr<Alerts> alerts_ = std::make_shared<Alerts>(panes_, clock_);

    mutable std::mutex mutex_; // Guards the members below.
    RulesListener rulesListener_;
    NeedListener needListener_;
    PlanSource planSource_;
    Index index_;
    bool isIndexCurrent_ = false;
    std::string indexTrouble_;
    BackupActivity activity_;
    std::uint64_t changes_ = 0;
    Settings settings_;
    Absences away_; // Includes those that the user has given up.
    Rules rules_;
    std::uint64_t settingsVersion_ = 0;
    std::optional<ScanReport> scan_;
    std::optional<bool> overQuotaForTesting_;
    std::optional<Override> override_;
    std::uint32_t announcedState_ = 0;
    RestoreProgress restore_;
    VerificationStatus verification_;
    std::optional<std::uint64_t> unreadAt_; // The value of `changes_` at that time.
};

} // namespace kelvane
