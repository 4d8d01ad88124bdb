#include "LocalDaemon/LocalDaemon.h"

#include "Common/RestoreStatus.h"
#include "Foundation/Checksum.h"
#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "LocalDaemon/Backup/BackupTrouble.h"
#include "LocalDaemon/Backup/RepositoryKey.h"
#include "LocalDaemon/Index/RetentionAlerts.h"
#include "LocalDaemon/Panes/DaemonTarget.h"
#include "LocalDaemon/Restic/ResticProcesses.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <sys/file.h>

namespace kelvane {
namespace {

constexpr const char* unkeptAlert = "restore_jobs_unkept";

bool haveSamePlaces(const Volumes& left, const Volumes& right) {
    return std::ranges::equal(left.all(), right.all(), {}, &Volume::mountPoint, &Volume::mountPoint);
}

// Each location has an index of its own, so that returning to a location finds it.
std::string indexPathFor(const std::string& beginning, const Configuration& configuration) {
    const std::string place =
        configuration.repository.location + '\n' + std::to_string(configuration.computerNumber);
    return beginning + formatText("-%016llx", checksumOf(place));
}

// Adds the alerts about restores.
void addAlerts(RestoreQueue::Options& options, const std::shared_ptr<Alerts>& alerts) {
    options.onWait = [alerts](const std::string& reason) {
        if (reason.empty())
            return alerts->withdraw(restorestatus::waitAlert);
        alerts->raise({.kind = restorestatus::waitAlert,
                       .severity = "warning",
                       .title = "A restore is delayed.",
                       .body = reason});
    };
    options.onJobNotSaved = [alerts](const std::string& reason) {
        alerts->raise({.kind = unkeptAlert,
                       .severity = "warning",
                       .title = "Restores are lost when the backup daemon ends.",
                       .body = reason + ". They are running now, but a restart does not continue them."});
    };
    options.onDamagedJournal = [alerts](const std::string& reason) {
        alerts->raise({.kind = "restore_jobs_damaged",
                       .severity = "error",
                       .title = "Pending restores may have been lost.",
                       .body = reason});
    };
}

} // namespace

LocalDaemon::LocalDaemon(Options options, std::shared_ptr<MainLoop> loop, std::function<void()> terminate)
    : options_(std::move(options)), loop_(std::move(loop)), terminate_(std::move(terminate)) {}

LocalDaemon::~LocalDaemon() {
    stop();
}

std::string LocalDaemon::start() {
    claim_.emplace(options_.socketPath);
    if (!claim_->refusal().empty())
        return claim_->refusal();
    if (const std::string refusal = claimSettings(); !refusal.empty())
        return refusal;
    if (const std::string refusal = makeWorld(); !refusal.empty())
        return refusal;
    const std::string& home = state_->configuration().home;
    if (!options_.fileSystem->isDirectory(home) && !state_->rules()->absentDisks.contains(home))
        return "cannot find the folder " + home;
    checkRepositoryKey(state_->configuration().repository, *keeper_, *state_->alerts(),
                       options_.configurationPath);
    // Before anybody can change the rules.
    FolderScan::Options scan = options_.scan;
    scan.failed = workFailed();
    scan.mounts = [fileSystem = options_.fileSystem] { return fileSystem->mounts(); };
    scan_.emplace(
        state_->rules(), state_->index(), tree_,
        [state = state_](const ScanReport& report) { state->takeReport(report); }, scan);
    connectListeners();
    restores_->start(); // Before anybody can request its jobs.
    if (!server_->listen(options_.socketPath))
        return "Cannot listen at " + options_.socketPath + ": " + errorText();
    scan_->start();
    runner_->start();
    refresh_ = loop_->schedule(options_.refreshInterval, MainLoop::Repeat::Always, [this] {
        runGuarded("looking for disks", workFailed(), [this] { refresh(); });
    });
    KelvaneCLog("Serving %@ at %@.", state_->configuration().home, options_.socketPath);
    return {};
}

void LocalDaemon::connectListeners() {
    keeper_->setKeyMade([state = state_] {
        announceRepositoryKey(*state->alerts(), state->configuration().repository.passwordFile);
    });
    keeper_->setPublish(
        [this](const IndexKeeper::Index& index, const std::vector<std::string>& changed, bool isRebuilt) {
            scan_->setIndex(index);
            if (isRebuilt)
                scan_->recheckEverything();
            state_->setIndex(index, changed);
            restores_->wake();
        });
    keeper_->setAlerts({[alerts = state_->alerts()](const Alert& alert) { alerts->raise(alert); },
                        [alerts = state_->alerts()](const std::string& kind) { alerts->withdraw(kind); }});
    runner_->setIndexListener([this] { restores_->wake(); });
    state_->setRulesListener([this](const DaemonState::Rules& rules) {
        scan_->setRules(rules);
        runner_->noteRules();
    });
    state_->setNeedListener([this](const BackupNeed& need) { runner_->noteNeed(need); });
    state_->setPlanSource([this] { return runner_->planned(); });
}

// Settings, index and jobs belong to one daemon: two would overwrite each other's files. Where the lock
// file cannot be created, they cannot be written either, which is reported at the first attempt.
std::string LocalDaemon::claimSettings() {
    const std::string path = options_.settingsPath + ".lock";
    if (!ensureFolder(std::string(folderOf(path))))
        return {};
    settingsLock_ =
        FileDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, privateFileMode));
    const bool isTaken = settingsLock_ && ::flock(settingsLock_.get(), LOCK_EX | LOCK_NB) != 0;
    return isTaken && errno == EWOULDBLOCK ? "Another daemon uses the settings in " + options_.settingsPath
                                           : "";
}

void LocalDaemon::stop() {
    refresh_.stop();
    if (state_) {
        state_->dropPanes();
        state_->setRulesListener({});
        state_->setNeedListener({});
        state_->setPlanSource({});
        nodes_->stop();
    }
    if (restores_)
        restores_->stop();
    if (runner_)
        runner_->stop();
    if (scan_)
        scan_->stop();
    if (server_)
        server_->stop();
    restores_.reset();
    runner_.reset();
    keeper_.reset();
    restic_.reset();
    scan_.reset();
    server_.reset();
    nodes_.reset();
    disks_.reset();
    state_.reset();
    tree_.reset();
    settingsLock_ = {};
    claim_.reset(); // Last: until now no other daemon may start.
}

std::string LocalDaemon::repositoryFolder() const {
    return localFolderOf(state_->configuration().repository.location);
}

std::string LocalDaemon::makeWorld() {
    volumes_ = options_.fileSystem->volumes();
    const auto store = std::make_shared<SettingsStore>(options_.settingsPath);
    SettingsStore::Loading loading = store->load();
    if (!loading.refusal.empty())
        return loading.refusal;
    const Configuration configuration =
        readConfiguration(options_.configurationPath, options_.defaults, *volumes_, options_.overrides);
    restic_ = std::make_shared<const Restic>(configuration.repository,
                                             std::make_shared<ResticProcesses>(options_.processesPath));
    keeper_ =
        std::make_shared<IndexKeeper>(Repository(restic_, configuration.computerNumber),
                                      indexPathFor(options_.indexPath, configuration), options_.machineClock);
    state_ = std::make_shared<DaemonState>(
        configuration, std::move(loading.settings), keeper_->index(),
        [store](const Settings& changed, std::uint64_t version) { return store->save(changed, version); },
        options_.clock);
    if (loading.alert)
        state_->alerts()->raise(*loading.alert);
    state_->checkSelection();
    disks_ = std::make_shared<KnownDisks>(state_, options_.fileSystem);
    mounts_ = disks_->selection().mountsOfScan();
    disks_->note(*volumes_);
    disks_->lookForAbsent();
    tree_ = std::make_shared<FolderTree>();
    nodes_ = std::make_shared<NodeAnswers>(state_, disks_, options_.fileSystem, tree_);
    Verification::Options verification = options_.verification;
    verification.path = indexPathFor(options_.indexPath, configuration) + ".verification";
    const auto verifier = std::make_shared<Verification>(state_, keeper_, verification);
    state_->setIndex(keeper_->index(), {}); // The index now includes the known damage.
    runner_ = std::make_shared<BackupRunner>(state_, disks_, keeper_, verifier, options_.backup);
    makeRestores();
    makeServer();
    return {};
}

void LocalDaemon::makeServer() {
    const auto world = std::make_shared<const DaemonTarget::World>(
        DaemonTarget::World{.state = state_,
                            .disks = disks_,
                            .rules = std::make_shared<RuleCommands>(state_, disks_, options_.fileSystem),
                            .nodes = nodes_,
                            .runner = runner_,
                            .terminate = terminate_,
                            .restores = restores_,
                            .showRestoreWizard = options_.showRestoreWizard,
                            .alertActions = makeAlertActions()});
    const auto makeTarget = [world](const std::shared_ptr<CallbackQueue>& pane) {
        world->state->addPane(pane);
        return std::make_shared<DaemonTarget>(world, pane);
    };
    const auto volumes = [disks = disks_] { return disks->volumes(); };
    server_ =
        std::make_shared<PaneServer>(loop_, makeTarget, PaneServer::Options{volumes, options_.sendTimeout});
}

// Registers a handler for every verb that an alert may offer.
std::shared_ptr<const AlertActions> LocalDaemon::makeAlertActions() const {
    using Decision = RetentionRecord::Decision;
    auto actions = std::make_shared<AlertActions>(state_->alerts());
    for (const auto& [verb, decision] :
         {std::pair(keepVerb, Decision::Keep), std::pair(forgetVerb, Decision::Forget)})
        actions->add(verb, [keeper = keeper_, decision = decision](const std::string& disappearance) {
            return keeper->decide(disappearance, decision);
        });
    using DiskDecision = AwayDisk::Decision;
    for (const auto& [verb, decision] :
         {std::pair(keepDiskVerb, DiskDecision::Keep), std::pair(forgetDiskVerb, DiskDecision::Forget)})
        actions->add(verb, [disks = disks_, decision = decision](const std::string& disk) {
            return disks->decide(disk, decision);
        });
    actions->add("store-again", [runner = runner_](const std::string&) {
        runner->storeAgain();
        return std::string();
    });
    actions->add(makeRepositoryVerb, [keeper = keeper_, runner = runner_](const std::string&) {
        keeper->allowMakingAnyway();
        runner->backUpNow(everything);
        return std::string();
    });
    return actions;
}

WorkFailed LocalDaemon::workFailed() const {
    return [alerts = state_->alerts()](const std::string& reason) {
        alerts->raise(alertForInternalError(reason));
    };
}

void LocalDaemon::makeRestores() {
    RestoreQueue::Options options;
    options.journalPath = options_.restoreJobsPath;
    options.restic = restic_;
    options.index = [state = state_]() -> std::shared_ptr<const BackupIndex> {
        auto index = state->index();
        return index->repositoryId().empty() || !state->isIndexCurrent() ? nullptr : index;
    };
    options.failed = workFailed();
    options.askForIndex = [state = state_, runner = runner_] {
        runner->connectNow();
        return state->indexTrouble();
    };
    options.onSnapshotGone = [runner = runner_] { runner->noteSnapshotGone(); };
    options.onProgress = [state = state_, runner = runner_](const RestoreProgress& progress) {
        runner->noteRestores(progress.job != 0);
        state->setRestoreProgress(progress);
    };
    options.onEnd = [state = state_](const std::vector<RestoreFailure>& failures) {
        state->alerts()->withdraw(unkeptAlert);
        state->endRestore(failures);
    };
    options.refusal = [disks = disks_](const std::string& target) { return disks->refusalFor(target); };
    options.onRefusal = [state = state_](const std::string& reason) { state->refuseRestore(reason); };
    addAlerts(options, state_->alerts());
    restores_ = std::make_shared<RestoreQueue>(std::move(options));
}

void LocalDaemon::refresh() {
    state_->refresh();
    keeper_->noteClock();
    disks_->lookForAbsent();
    // Mounting over a watched folder causes no event for it.
    const auto volumes = options_.fileSystem->volumes();
    const std::set<std::string> mounts = disks_->selection().mountsOfScan();
    const bool haveSameMounts = std::exchange(mounts_, mounts) == mounts;
    if (haveSamePlaces(*std::exchange(volumes_, volumes), *volumes) && haveSameMounts)
        return;
    disks_->note(*volumes);
    scan_->recheckEverything();
}

} // namespace kelvane
