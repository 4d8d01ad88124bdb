#pragma once

#include "Common/Invocation.h"
#include "LocalDaemon/Backup/BackupRunner.h"
#include "LocalDaemon/Panes/AlertActions.h"
#include "LocalDaemon/Panes/CallbackQueue.h"
#include "LocalDaemon/Panes/NodeAnswers.h"
#include "LocalDaemon/Panes/RuleCommands.h"
#include "LocalDaemon/Restore/RestoreQueue.h"
#include "LocalDaemon/State/KnownDisks.h"

#include <functional>
#include <memory>

namespace kelvane {

// The methods of the daemon that a pane calls, each executed on the receive thread of that pane's
// socket.
//
// Arguments from a pane are not trusted: one that is missing or has the wrong type counts as 0, false or
// empty, and an invalid call changes nothing.
class DaemonTarget : public InvocationTarget {
public:
    // Shared by all panes of a daemon. `terminate` is called on a receive thread and returns at once.
    struct World {
        std::shared_ptr<DaemonState> state;
        std::shared_ptr<const KnownDisks> disks;
        std::shared_ptr<const RuleCommands> rules;
        std::shared_ptr<const NodeAnswers> nodes;
        std::shared_ptr<BackupRunner> runner;
        std::function<void()> terminate;
        std::shared_ptr<RestoreQueue> restores;
        std::function<void()> showRestoreWizard; // Called on a receive thread and returns at once.
        std::shared_ptr<const AlertActions> alertActions;
    };

    DaemonTarget(std::shared_ptr<const World> world, std::shared_ptr<CallbackQueue> pane)
        : world_(std::move(world)), pane_(std::move(pane)) {}

    [[nodiscard]] Protocol methods() const override;
    void invoke(Invocation& invocation) override;

    void terminate() { world_->terminate(); }

    // State
    std::uint32_t serviceState() { return world_->state->serviceState(); }
    void setServiceState(std::uint32_t code) { world_->state->overrideServiceState(code); }
    Value daemonState() { return world_->state->stateDictionary(); }
    Value stringForState(std::uint32_t code);
    std::uint64_t longlongForState(std::uint32_t code);
    std::int64_t longForState(std::uint32_t code);
    Value backedupStateString();
    Value liveStateString();

    // Callbacks of this pane
    void setStateHandler() { world_->state->addStateHandler(*pane_); }
    void endStateHandler() { pane_->setStateHandler(false); }
    void setAlertHandler() { world_->state->alerts()->addHandler(*pane_); }
    void endAlertHandler() { pane_->setAlertHandler(false); }

    // Standing alerts
    Value dismissAlert(const Value& id);
    Value performAlertAction(const Value& action, const Value& ofAlert);

    Value verify();

    // Modes
    bool automaticMode() { return world_->state->setting(&Settings::automaticMode); }
    void setAutomaticMode(bool on) { kelvane::setAutomaticMode(*world_->state, on); }
    bool recoverMode() { return world_->state->setting(&Settings::recoverMode); }
    void setRecoverMode(bool on) { setFlag(&Settings::recoverMode, on); }
    bool lowerPriorityMode() { return world_->state->setting(&Settings::lowerPriorityMode); }
    void setLowerPriorityMode(bool on) { setFlag(&Settings::lowerPriorityMode, on); }
    bool delayShutdown() { return world_->state->setting(&Settings::delayShutdown); }
    void setDelayShutdown(bool on) { setFlag(&Settings::delayShutdown, on); }
    void setIncludeRequired(bool on) { setFlag(&Settings::includeRequired, on); }
    void setEnabled(bool on) { setFlag(&Settings::enabled, on); }
    std::uint32_t pausedMinutes() { return world_->state->pausedMinutes(); }
    void setPausedMinutes(std::uint32_t minutes) { world_->state->setPausedMinutes(minutes); }
    void setBackupControl(std::uint32_t flags);

    // Account and profile
    Value serverURL() { return world_->state->configuration().serverURL; }
    Value userEmail() { return world_->state->configuration().userEmail; }
    Value computerNumber() { return world_->state->configuration().computerNumber; }
    Value marketingMessage() { return ""; }
    Value mappedUserAsString(const Value& user);
    Value stringValueForProfileKey(const Value& key);
    void setValueForProfileKey(const Value& key, const Value& text);
    std::uint32_t getFileTypeToggle(const Value& fileType);
    void setFileTypeToggle(const Value& fileType, std::uint32_t toggle);
    void setAccountOverQuotaTestingFlag(bool overQuota) { world_->state->setOverQuotaForTesting(overQuota); }
    void clearAccountOverQuotaTestingFlag() { world_->state->setOverQuotaForTesting(std::nullopt); }

    // Single paths
    Value dictionaryForPath(const Value& path) { return dictionaryForPathWithDirSizes(path, false); }
    Value dictionaryForPathWithDirSizes(const Value& path, bool withDirSizes);
    Value childrenDictionariesForPath(const Value& path) { return world_->nodes->children(path); }
    Value backupColorsForFiles(const Value& paths) { return world_->nodes->colors(paths); }
    Value excludedFiles(const Value& path) { return world_->nodes->excludedFiles(path); }
    Value policyExcludeList() { return world_->nodes->policy(); }
    std::uint32_t excludeFileFromBackup(const Value& path) { return world_->rules->exclude(path); }
    std::uint32_t unexcludeFileFromBackup(const Value& path) { return world_->rules->unexclude(path); }
    void addFileToBackup(const Value& path) { world_->rules->mark(Array{path}, PathRules::Mark::Added); }
    void addFilesToBackup(const Value& paths) { world_->rules->mark(paths.array(), PathRules::Mark::Added); }
    void removeFileFromBackup(const Value& path) {
        world_->rules->mark(Array{path}, PathRules::Mark::Removed);
    }
    // "/" requests all pending files.
    void setPriorityBackup(const Value& path);

    // Restoring
    void showRestoreWizard() { world_->showRestoreWizard(); }
    bool restoreWithChoices(const Value& choices);
    std::uint32_t restoreFile(const Value& source, const Value& destination, std::uint32_t version,
                              std::uint32_t priority);
    std::uint32_t getCurrentRestoreJob() { return world_->restores->currentJob(); }
    std::uint32_t getRestoreJobStatus(std::uint32_t job) { return world_->restores->status(job); }
    void cancelAllRestoreJobs() { world_->restores->cancelAll(); }

private:
    void setFlag(bool Settings::*flag, bool on);

    const std::shared_ptr<const World> world_;
    const std::shared_ptr<CallbackQueue> pane_;
};

} // namespace kelvane
