#include "LocalDaemon/State/DaemonState.h"

#include "Common/StateKeys.h"
#include "Foundation/CleanPath.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/State/PaneValues.h"
#include "Support/Logging.h"

#include <algorithm>
#include <limits>

namespace kelvane {
namespace {

constexpr const char* settingsAlert = "settings_not_saved";
constexpr const char* selectionAlert = "nothing_selected";
constexpr const char* watchAlert = "watch_limit_reached";

std::uint32_t narrowed(std::uint64_t count) {
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(count, std::numeric_limits<std::uint32_t>::max()));
}

// Adds the path and its parent folders, whose status may change with it. Not "/", which would stand for
// everything.
void addWithFolders(std::set<std::string>& paths, std::string_view path) {
    do {
        if (!paths.emplace(path).second)
            return;
        path = folderOf(path);
    } while (path != "/");
}

std::vector<std::string> withFolders(const std::vector<std::string>& paths) {
    std::set<std::string> all;
    for (const std::string& path : paths)
        addWithFolders(all, path);
    return {all.begin(), all.end()};
}

} // namespace

DaemonState::DaemonState(Configuration configuration, Settings settings, Index index, SaveSettings save,
                         Clock clock)
    : configuration_(std::move(configuration)),
      destination_(textForPanes(destinationText(configuration_.repository.location))),
      save_(std::move(save)),
      clock_(std::move(clock)),
      index_(std::move(index)),
      settings_(std::move(settings)),
      rules_(currentRules()) {
    announcedState_ = currentServiceState(); // Depends on all other members.
    if (index_->repositoryId().empty())
        return;
    std::erase_if(settings_.disks, [&](const std::string& point) { return !isInBackup(*index_, point); });
    std::erase_if(settings_.mounts, [&](const auto& mount) { return !isInBackup(*index_, mount.first); });
}

void DaemonState::setRulesListener(RulesListener listener) {
    const std::scoped_lock guard(mutex_);
    rulesListener_ = std::move(listener);
}

void DaemonState::setNeedListener(NeedListener listener) {
    const std::scoped_lock guard(mutex_);
    needListener_ = std::move(listener);
}

DaemonState::Index DaemonState::index() const {
    const std::scoped_lock guard(mutex_);
    return index_;
}

void DaemonState::setIndex(Index index, const std::vector<std::string>& changed) {
    std::vector<std::string> files = changed;
    files.emplace_back(everything); // The status of all folders may have changed.
    files = withFolders(files);     // Takes long for many paths, so the mutex is not held.
    const std::scoped_lock guard(mutex_);
    index_ = std::move(index);
    panes_->tell([&](DaemonObserver& pane) { pane.filesChanged(files); });
    announce();
}

void DaemonState::setIndexCurrent(bool isCurrent, const std::string& trouble) {
    const std::scoped_lock guard(mutex_);
    isIndexCurrent_ = isCurrent;
    indexTrouble_ = trouble;
    announce();
}

bool DaemonState::isIndexCurrent() const {
    const std::scoped_lock guard(mutex_);
    return isIndexCurrent_;
}

std::string DaemonState::indexTrouble() const {
    const std::scoped_lock guard(mutex_);
    return indexTrouble_;
}

BackupActivity DaemonState::activity() const {
    const std::scoped_lock guard(mutex_);
    return activity_;
}

void DaemonState::setActivity(const BackupActivity& activity) {
    const std::scoped_lock guard(mutex_);
    activity_ = activity;
    if (!activity_.isRunning && scan_ && scan_->index == index_)
        activity_.done = {}; // The scan's report includes them now.
    announce();
}

BackupNeed DaemonState::backupNeed() const {
    const std::scoped_lock guard(mutex_);
    return currentNeed();
}

DaemonState::Rules DaemonState::rules() const {
    const std::scoped_lock guard(mutex_);
    return rules_;
}

Settings DaemonState::settings() const {
    const std::scoped_lock guard(mutex_);
    return settings_;
}

void DaemonState::changeSettings(const std::function<void(Settings&)>& change) {
    Settings changed;
    std::uint64_t version = 0;
    {
        const std::scoped_lock guard(mutex_);
        changed = settings_;
        change(changed);
        if (changed == settings_)
            return;
        takeSettings(changed);
        version = settingsVersion_;
    }
    checkSelection();
    const std::string failure = save_(changed, version);
    if (failure.empty())
        return alerts_->withdraw(settingsAlert);
    logError("The settings cannot be saved: %@", failure);
    alerts_->raise({.kind = settingsAlert,
                    .severity = "error",
                    .title = "Your settings could not be saved.",
                    .body = "They are in use, but will be lost when the backup daemon ends. " + failure});
}

void DaemonState::setAbsences(const Absences& away) {
    const std::scoped_lock guard(mutex_);
    if (std::exchange(away_, away) != away && takeOtherRules())
        announce();
}

Absences DaemonState::absences() const {
    const std::scoped_lock guard(mutex_);
    return currentAbsences();
}

Value DaemonState::stateDictionary() const {
    const std::scoped_lock guard(mutex_);
    const BackupTotals totals = currentTotals();
    const std::uint32_t service = currentServiceState();
    Dictionary state{
        {std::string(statekey::serviceState), service},
        {std::string(statekey::statusString), currentStatusText(service)},
        // Constant, because the rules are loaded before the daemon accepts connections.
        {std::string(statekey::backupState), backupstate::rulesAreLoaded},
        {std::string(statekey::isBackupNeeded), needsBackup()},
        {std::string(statekey::hasUnreadFiles), unreadAt_.has_value()},
        {std::string(statekey::paused), isPaused()},
        {std::string(statekey::recoverMode), settings_.recoverMode},
        {std::string(statekey::lowerPriorityMode), settings_.lowerPriorityMode},
        {std::string(statekey::backupControlFlags), settings_.backupControlFlags},
        {std::string(statekey::isQuotaLimited), configuration_.quotaMB > 0 || isOverQuota()},
        {std::string(statekey::isOverQuota), isOverQuota()},
        {std::string(statekey::quotaMB), configuration_.quotaMB},
        {std::string(statekey::currentBackupFile), textFromPath(activity_.currentFile)},
        {std::string(statekey::currentRestoreFile), textFromPath(restore_.file)},
        {std::string(statekey::currentRestoreJob), restore_.job},
    };
    // Before the first scan the values are unknown, and panes show them as such.
    if (scan_) {
        state.set(statekey::backedUpFileCount, narrowed(totals.backedUp.count));
        state.set(statekey::backedupFileSize, totals.backedUp.bytes);
        state.set(statekey::pendingFileCount, narrowed(totals.pending.count));
        state.set(statekey::pendingFileSize, totals.pending.bytes);
    }
    addExtensions(state);
    return state;
}

BackupTotals DaemonState::totals() const {
    const std::scoped_lock guard(mutex_);
    return currentTotals();
}

FileTotals DaemonState::found() const {
    const std::scoped_lock guard(mutex_);
    return currentlyFound();
}

void DaemonState::takeReport(const ScanReport& report) {
    {
        const std::scoped_lock guard(mutex_);
        // The status of a folder depends on its pending files.
        const bool isOtherwise = !scan_ || scan_->pending.count != report.pending.count ||
                                 scan_->otherPending != report.otherPending;
        scan_ = report;
        scan_->changedFolders.clear();
        changes_ += report.changedFolders.empty() ? 0U : 1U;
        if (report.index == index_ && !activity_.isRunning)
            activity_.done = {};
        if (!report.changedFolders.empty())
            panes_->tell([&](DaemonObserver& pane) { pane.foldersChanged(report.changedFolders); });
        if (isOtherwise)
            announceFiles(report.changedFolders);
        announce();
    }
    if (report.isWatchIncomplete)
        alerts_->raise(
            {.kind = watchAlert,
             .severity = "warning",
             .title = "Some changes are noticed late.",
             .body = "No inotify watches are left for the remaining folders; they are listed every few "
                     "minutes instead. To watch more folders, raise fs.inotify.max_user_watches and restart "
                     "the daemon."});
}

std::vector<std::string> DaemonState::lossyLinks() const {
    const std::scoped_lock guard(mutex_);
    return scan_ ? scan_->lossyLinks : std::vector<std::string>();
}

void DaemonState::noteUnread(std::optional<std::uint64_t> changes) {
    const std::scoped_lock guard(mutex_);
    unreadAt_ = changes;
}

void DaemonState::checkSelection() {
    if (selectsAnything(*rules()))
        alerts_->withdraw(selectionAlert);
    else
        alerts_->raise(
            {.kind = selectionAlert,
             .severity = "warning",
             .title = nothingIsSelected,
             .body = "Nothing is being backed up, and files in the backup are removed after the retention "
                     "period for deleted files. Select folders in the Backup tab."});
}

void DaemonState::refresh() {
    const std::scoped_lock guard(mutex_);
    announce();
}

Absences DaemonState::currentAbsences() const {
    Absences absences = away_;
    std::erase_if(absences, [&](const auto& each) {
        const auto known = settings_.awayDisks.find(each.first);
        return known != settings_.awayDisks.end() && known->second.decision == AwayDisk::Decision::Forget;
    });
    return absences;
}

std::int64_t DaemonState::now() const {
    return std::chrono::floor<std::chrono::seconds>(clock_()).time_since_epoch().count();
}

// Includes the progress of the running backup until the scan has compared with the resulting index.
BackupTotals DaemonState::currentTotals() const {
    if (!scan_)
        return {index_->totals(), {}};
    BackupTotals totals{scan_->index->totals(), scan_->pending};
    const FileTotals done{std::min(activity_.done.count, totals.pending.count),
                          std::min(activity_.done.bytes, totals.pending.bytes)};
    totals.backedUp += done;
    totals.pending -= done;
    return totals;
}

bool DaemonState::needsBackup() const {
    return isLooking() || !backupOrders_.areDone();
}

bool DaemonState::isPending() const {
    return scan_ && (scan_->pending.count > 0 || scan_->otherPending > 0) && unreadAt_ != changes_;
}

// A scan that was compared with another index does not tell which files are pending.
bool DaemonState::isLooking() const {
    return !scan_ || scan_->isScanning || scan_->index != index_;
}

BackupNeed DaemonState::currentNeed() const {
    BackupNeed need;
    const bool mayWork = hasPlace() && settings_.enabled && !isPaused();
    need.mayAdd = mayWork && !settings_.recoverMode && !isOverQuota();
    // A restore waits for the index even while no backup is allowed.
    need.mayRead = mayWork || (hasPlace() && restore_.job != 0 && !isIndexCurrent_);
    need.isKnown = !isLooking();
    need.isPending = isPending();
    need.hasUnread = scan_ && scan_->pending.count > 0 && !need.isPending;
    need.changes = changes_;
    need.hasLowerPriority = settings_.lowerPriorityMode;
    return need;
}

DaemonState::Rules DaemonState::currentRules() const {
    const auto rules = std::make_shared<BackupRules>(BackupRules{.automaticMode = settings_.automaticMode,
                                                                 .home = configuration_.home,
                                                                 .policy = configuration_.policy,
                                                                 .paths = settings_.paths,
                                                                 .volumes = configuration_.volumes,
                                                                 .ownFiles = configuration_.ownFiles});
    rules->absentDisks = pathsOfAbsences(currentAbsences(), settings_, *rules);
    return rules;
}

void DaemonState::takeSettings(const Settings& settings) {
    settings_ = settings;
    ++settingsVersion_;
    takeOtherRules();
    announce();
}

// Returns false when the rules have not changed.
bool DaemonState::takeOtherRules() {
    Rules now = currentRules();
    if (*now == *rules_)
        return false;
    ++changes_;
    const Rules before = std::exchange(rules_, std::move(now));
    if (rulesListener_)
        rulesListener_(rules_);
    announceRules(*before);
    return true;
}

void DaemonState::announceRules(const BackupRules& before) const {
    std::set<std::string> files;
    std::set<std::string> folders;
    for (const std::string& path : changedRules(before, *rules_)) {
        addWithFolders(files, path);
        folders.emplace(folderOf(path));
    }
    panes_->tell([&](DaemonObserver& pane) {
        pane.filesChanged({files.begin(), files.end()});
        pane.foldersChanged({folders.begin(), folders.end()});
    });
}

// Includes the parent folders, whose status may have changed.
void DaemonState::announceFiles(const std::vector<std::string>& paths) const {
    if (paths.empty())
        return;
    const std::vector<std::string> files = withFolders(paths);
    panes_->tell([&](DaemonObserver& pane) { pane.filesChanged(files); });
}

void DaemonState::announce() {
    if (needListener_)
        needListener_(currentNeed());
    if (override_ && override_->inFrontOf != ownServiceState())
        override_.reset(); // Ends the override for good, even if the state returns.
    const std::uint32_t state = currentServiceState();
    if (state == announcedState_)
        return;
    announcedState_ = state;
    if (isAnnounced(state))
        panes_->tell([state](DaemonObserver& pane) { pane.stateChanged(state); });
}

} // namespace kelvane
