#pragma once

#include "Common/Invocation.h"
#include "LocalDaemon/Backup/BackupRunner.h"
#include "LocalDaemon/Panes/AlertActions.h"
#include "LocalDaemon/Panes/CallbackQueue.h"
#include "LocalDaemon/Panes/NodeAnswers.h"
#include "LocalDaemon/Panes/RuleCommands.h"
#include "LocalDaemon/Restore/RestoreQueue.h"
#include "LocalDaemon/Rules/PathEntrance.h"
#include "LocalDaemon/State/DaemonState.h"

#include <functional>
#include <memory>

namespace kelvane {

// What one pane calls: every method of the daemon, each run to its end on the receive thread of that pane's
// socket.
//
// What a pane sends is not trusted: an argument that is missing or of another kind reads as 0, false or
// empty, and a call that makes no sense then changes nothing.
class DaemonTarget : public InvocationTarget {
public:
    // What all panes of a daemon share. `terminate` is called on a receive thread and returns at once.
    struct World {
        std::shared_ptr<DaemonState> state;
        std::shared_ptr<const FileSystem> fileSystem;
        std::shared_ptr<const NodeAnswers> nodes;
        std::shared_ptr<BackupRunner> runner;
        std::function<void()> terminate;
        std::shared_ptr<RestoreQueue> restores;
        std::function<void()> showRestoreWizard; // likewise
        std::shared_ptr<const AlertActions> alertActions;
    };

    DaemonTarget(const World& world, std::shared_ptr<CallbackQueue> pane)
        : state_(world.state),
          fileSystem_(world.fileSystem),
          nodes_(world.nodes),
          runner_(world.runner),
          pane_(std::move(pane)),
          terminate_(world.terminate),
          restores_(world.restores),
          showRestoreWizard_(world.showRestoreWizard),
          alertActions_(world.alertActions) {}

    [[nodiscard]] Protocol methods() const override;
    void invoke(Invocation& invocation) override;

    void terminate() { terminate_(); }

    // State
    std::uint32_t serviceState() { return state_->serviceState(); }
    void setServiceState(std::uint32_t code) { state_->overrideServiceState(code); }
    Value daemonState() { return state_->stateDictionary(); }
    Value stringForState(std::uint32_t code);
    std::uint64_t longlongForState(std::uint32_t code);
    std::int64_t longForState(std::uint32_t code);
    Value backedupStateString();
    Value liveStateString();

    // Callbacks of this pane
    void setStateHandler() { state_->addStateHandler(*pane_); }
    void endStateHandler() { pane_->setStateHandler(false); }
    void setAlertHandler() { state_->addAlertHandler(*pane_); }
    void endAlertHandler() { pane_->setAlertHandler(false); }

    // Standing alerts
    Value dismissAlert(const Value& id);
    Value performAlertAction(const Value& action, const Value& ofAlert);

    Value verify();

    // Modes
    bool automaticMode() { return state_->settings().automaticMode; }
    void setAutomaticMode(bool on) { kelvane::setAutomaticMode(*state_, on); }
    bool recoverMode() { return state_->settings().recoverMode; }
    void setRecoverMode(bool on) { setFlag(&Settings::recoverMode, on); }
    bool lowerPriorityMode() { return state_->settings().lowerPriorityMode; }
    void setLowerPriorityMode(bool on) { setFlag(&Settings::lowerPriorityMode, on); }
    bool delayShutdown() { return state_->settings().delayShutdown; }
    void setDelayShutdown(bool on) { setFlag(&Settings::delayShutdown, on); }
    void setIncludeRequired(bool on) { setFlag(&Settings::includeRequired, on); }
    void setEnabled(bool on) { setFlag(&Settings::enabled, on); }
    std::uint32_t pausedMinutes() { return state_->pausedMinutes(); }
    void setPausedMinutes(std::uint32_t minutes) { state_->setPausedMinutes(minutes); }
    void setBackupControl(std::uint32_t flags);

    // Account and profile
    Value serverURL() { return state_->configuration().serverURL; }
    Value userEmail() { return state_->configuration().userEmail; }
    Value computerNumber() { return state_->configuration().computerNumber; }
    Value marketingMessage() { return ""; }
    Value mappedUserAsString(const Value& user);
    Value stringValueForProfileKey(const Value& key);
    void setValueForProfileKey(const Value& key, const Value& text);
    std::uint32_t getFileTypeToggle(const Value& fileType);
    void setFileTypeToggle(const Value& fileType, std::uint32_t toggle);
    void setAccountOverQuotaTestingFlag(bool overQuota) { state_->setOverQuotaForTesting(overQuota); }
    void clearAccountOverQuotaTestingFlag() { state_->setOverQuotaForTesting(std::nullopt); }

    // Single paths
    Value dictionaryForPath(const Value& path) { return dictionaryForPathWithDirSizes(path, false); }
    Value dictionaryForPathWithDirSizes(const Value& path, bool withDirSizes);
    Value childrenDictionariesForPath(const Value& path) { return nodes_->children(path); }
    Value backupColorsForFiles(const Value& paths) { return nodes_->colors(paths); }
    Value excludedFiles(const Value& path) { return nodes_->excludedFiles(path); }
    Value policyExcludeList() { return nodes_->policy(); }
    std::uint32_t excludeFileFromBackup(const Value& path) {
        return excludeFile(*state_, *fileSystem_, path);
    }
    std::uint32_t unexcludeFileFromBackup(const Value& path) {
        return unexcludeFile(*state_, *fileSystem_, path);
    }
    void addFileToBackup(const Value& path) { mark(Array{path}, PathRules::Mark::Added); }
    void addFilesToBackup(const Value& paths) { mark(paths.array(), PathRules::Mark::Added); }
    void removeFileFromBackup(const Value& path) { mark(Array{path}, PathRules::Mark::Removed); }
    // "/" asks for everything that is waiting.
    void setPriorityBackup(const Value& path);

    // Restoring
    void showRestoreWizard() { showRestoreWizard_(); }
    bool restoreWithChoices(const Value& choices);
    std::uint32_t restoreFile(const Value& source, const Value& destination, std::uint32_t version,
                              std::uint32_t priority);
    std::uint32_t getCurrentRestoreJob() { return restores_->currentJob(); }
    std::uint32_t getRestoreJobStatus(std::uint32_t job) { return restores_->status(job); }
    void cancelAllRestoreJobs() { restores_->cancelAll(); }

private:
    // For one request, also to disks that are away.
    [[nodiscard]] PathEntrance entrance() const;
    void setFlag(bool Settings::*flag, bool on);
    void mark(const Array& paths, PathRules::Mark mark) { markFiles(*state_, *fileSystem_, paths, mark); }
    // Logs what cannot be done, and answers a code that is not 0, which would say that it is done.
    static std::uint32_t refuse(std::string_view selector, const Value& argument);

    const std::shared_ptr<DaemonState> state_;
    const std::shared_ptr<const FileSystem> fileSystem_;
    const std::shared_ptr<const NodeAnswers> nodes_;
    const std::shared_ptr<BackupRunner> runner_;
    const std::shared_ptr<CallbackQueue> pane_;
    const std::function<void()> terminate_;
    const std::shared_ptr<RestoreQueue> restores_;
    const std::function<void()> showRestoreWizard_;
    const std::shared_ptr<const AlertActions> alertActions_;
};

} // namespace kelvane
