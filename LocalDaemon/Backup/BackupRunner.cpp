#include "LocalDaemon/Backup/BackupRunner.h"

#include "LocalDaemon/Backup/BackupTrouble.h"
#include "Support/GuardedWork.h"
#include "Support/Logging.h"

#include <algorithm>
#include <utility>

namespace kelvane {
namespace {

// Requested paths at a time; when there are more, everything is backed up instead.
constexpr std::size_t mostWanted = 100;

std::optional<std::chrono::system_clock::duration> ageOfLastBackup(const BackupIndex& index) {
    const Snapshot* const last = index.newestCompleteSnapshot();
    if (!last)
        return std::nullopt;
    // A snapshot may be of any year up to 9999, which the clock's own unit cannot express.
    constexpr std::chrono::seconds longest = std::chrono::years(100);
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    return std::clamp(now.time_since_epoch() - std::chrono::seconds(last->time), -longest, longest);
}

} // namespace

BackupRunner::BackupRunner(std::shared_ptr<DaemonState> state, std::shared_ptr<KnownDisks> disks,
                           std::shared_ptr<IndexKeeper> keeper, std::shared_ptr<Verification> verification,
                           const Options& options)
    : state_(std::move(state)),
      disks_(std::move(disks)),
      keeper_(std::move(keeper)),
      verification_(std::move(verification)),
      options_(options),
      schedule_(options.schedule, state_->configuration().interval, ageOfLastBackup(*keeper_->index()),
                Clock::now()) {}

BackupRunner::~BackupRunner() {
    stop();
}

void BackupRunner::start() {
    thread_ = std::thread([this] { run(); });
}

void BackupRunner::stop() {
    {
        const std::scoped_lock guard(mutex_);
        stopping_ = true;
        if (work_.stop)
            work_.stop->set();
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

void BackupRunner::noteNeed(const BackupNeed& need) {
    const std::scoped_lock guard(mutex_);
    if (schedule_.mustStop(work_.task, need_, need, Clock::now()))
        work_.stop->set();
    isUrgent_ = isUrgent_ || (need.mayAdd && !need_.mayAdd);
    need_ = need;
    isNoted_ = true;
    changed_.notify_all();
}

void BackupRunner::noteRules() {
    const std::scoped_lock guard(mutex_);
    if (work_.task == Task::BackUp)
        work_.stop->set();
}

void BackupRunner::noteRestores(bool areWaiting) {
    const std::scoped_lock guard(mutex_);
    isUrgent_ = isUrgent_ || (areWaiting && !isRestoring_);
    isRestoring_ = areWaiting;
    if (isRestoring_ && work_.yieldsToRestores)
        work_.stop->set();
}

void BackupRunner::connectNow() {
    const std::scoped_lock guard(mutex_);
    isUrgent_ = true;
    isNoted_ = true;
    changed_.notify_all();
}

void BackupRunner::noteSnapshotGone() {
    state_->setIndexCurrent(false);
    const std::scoped_lock guard(mutex_);
    mustConnect_ = isUrgent_ = isNoted_ = true;
    changed_.notify_all();
}

void BackupRunner::backUpNow(const std::string& path) {
    const std::scoped_lock guard(mutex_);
    if (wanted_.size() >= mostWanted)
        wanted_ = {everything};
    wanted_.insert(path);
    isUrgent_ = true;
    isNoted_ = true;
    if (work_.task == Task::Verify || (work_.task == Task::BackUp && path != everything))
        work_.stop->set(); // Nothing is lost: restic does not store again what it has already stored.
    changed_.notify_all();
}

void BackupRunner::run() {
    noteNeed(state_->backupNeed());
    for (;;) {
        const Work work = takeWork(); // closes the descriptor of its stop signal before the next wait
        if (work.task == Task::None)
            return;
        runGuarded(
            "backing up", [this](const std::string& reason) { takeFailure(reason); },
            [&] { perform(work.task, *work.stop); });
    }
}

BackupRunner::Work BackupRunner::takeWork() {
    for (;;) {
        {
            const std::scoped_lock guard(mutex_);
            isNoted_ = false;
        }
        // `mutex_` must not be held: this queries the state, which calls `noteNeed` with its own mutex held.
        const std::chrono::milliseconds untilVerification = verification_->timeUntilDue();
        std::unique_lock guard(mutex_);
        if (stopping_)
            return {};
        isConnected_ = isConnected_ && !mustConnect_;
        const BackupSchedule::Step step = schedule_.next({.need = need_,
                                                          .isOrdered = !wanted_.empty(),
                                                          .isRestoring = isRestoring_,
                                                          .isConnected = isConnected_,
                                                          .isUrgent = std::exchange(isUrgent_, false),
                                                          .untilVerification = untilVerification},
                                                         Clock::now());
        if (step.task != Task::None) {
            work_ = {step.task, std::make_shared<StopSignal>(), step.task == Task::Verify};
            return work_;
        }
        changed_.wait_for(guard, step.wait, [this] { return stopping_ || isNoted_; });
    }
}

void BackupRunner::takeFailure(const std::string& reason) {
    {
        const std::scoped_lock guard(mutex_);
        work_ = {};
        schedule_.postpone(Clock::now());
    }
    isConnected_ = false;
    state_->setIndexCurrent(false, reason);
    BackupActivity activity = state_->activity();
    activity.isRunning = false;
    activity.currentFile.clear();
    activity.done = {};
    state_->setActivity(activity);
    const Alert alert = alertForInternalError(reason);
    noteFailure(alert.title);
    state_->alerts()->raise(alert);
}

void BackupRunner::perform(Task task, const StopSignal& stop) {
    if (task == Task::Verify)
        return verify(stop);
    const std::uint64_t orders = state_->backupOrders().count();
    ResticOutcome outcome = keeper_->repository().waitForAnswer(stop);
    if (outcome.succeeded())
        outcome = attempt(task, stop);
    if (!outcome.succeeded() && outcome.wasCacheDamaged) {
        isConnected_ = false; // Connecting adds the snapshot to the index, marked as incomplete.
        outcome = attempt(task, stop);
    }
    if (outcome.trouble == ResticTrouble::Locked)
        outcome = attemptAgain(task, stop, std::move(outcome));
    {
        const std::scoped_lock guard(mutex_);
        work_ = {};
    }
    takeOutcome(outcome);
    BackupActivity activity = state_->activity();
    activity.isRunning = false;
    activity.currentFile.clear();
    if (!outcome.succeeded())
        activity.done = {};
    state_->setActivity(activity);
    if (outcome.trouble != ResticTrouble::Stopped)
        state_->backupOrders().noteTried(orders);
}

ResticOutcome BackupRunner::attempt(Task task, const StopSignal& stop) {
    ResticOutcome outcome = isConnected_ && keeper_->isCurrent() ? ResticOutcome() : connect(stop);
    if (outcome.succeeded() && task == Task::BackUp)
        outcome = backUpWanted(stop);
    return outcome;
}

// Repeats an attempt that failed because of a lock.
ResticOutcome BackupRunner::attemptAgain(Task task, const StopSignal& stop, ResticOutcome before) {
    const Repository::Locks locks = keeper_->repository().clearStaleLocks(stop);
    ResticOutcome outcome = locks.outcome.succeeded() ? attempt(task, stop) : std::move(before);
    if (outcome.trouble == ResticTrouble::Locked && !locks.holders.empty())
        outcome.errors = locks.holders;
    return outcome;
}

ResticOutcome BackupRunner::connect(const StopSignal& stop) {
    bool mayMake = false;
    bool isAskedFor = false;
    {
        const std::scoped_lock guard(mutex_);
        mayMake = need_.mayAdd;
        isAskedFor = isRestoring_;
        mustConnect_ = false;
    }
    ResticOutcome outcome = keeper_->synchronize(mayMake, stop);
    // A missing repository that may not be created yet is not a failure.
    if (!mayMake && !isAskedFor && outcome.trouble == ResticTrouble::NoRepository &&
        keeper_->index()->repositoryId().empty()) {
        const std::scoped_lock guard(mutex_);
        schedule_.postpone(Clock::now());
        return {};
    }
    isConnected_ = outcome.succeeded();
    if (isConnected_)
        noteIndexCurrent();
    return outcome;
}

void BackupRunner::noteIndexCurrent() {
    {
        const std::scoped_lock guard(mutex_);
        if (mustConnect_)
            return;
    }
    state_->setIndexCurrent(true);
    indexListener_();
}

// A request that arrives during the backup remains, since this backup may have missed what it asks for.
ResticOutcome BackupRunner::backUpWanted(const StopSignal& stop) {
    const std::uint64_t orders = state_->backupOrders().count();
    std::set<std::string> wanted;
    {
        const std::scoped_lock guard(mutex_);
        wanted = std::exchange(wanted_, {});
    }
    const bool isWanted = !wanted.empty();
    wanted.erase(everything);
    ResticOutcome outcome;
    while (!wanted.empty() && outcome.succeeded()) {
        outcome = backUp({.path = *wanted.begin()}, stop);
        if (outcome.succeeded())
            wanted.erase(wanted.begin());
    }
    if (outcome.succeeded())
        outcome = backUpEverything(stop);
    if (outcome.succeeded())
        outcome = verifyStored(isWanted, stop);
    if (outcome.succeeded()) {
        {
            const std::scoped_lock guard(mutex_);
            schedule_.noteBackup(Clock::now());
        }
        state_->backupOrders().noteDone(orders);
        return forgetOld(stop);
    }
    if (isWanted)
        wanted.insert(everything); // The backup of everything, which follows the paths, is still due.
    const std::scoped_lock guard(mutex_);
    wanted_.merge(wanted);
    return outcome;
}

// While a restore uses the repository, nothing is forgotten; a later backup does it.
ResticOutcome BackupRunner::forgetOld(const StopSignal& stop) {
    if (!beginYieldingToRestores())
        return {};
    const ResticOutcome outcome = keeper_->forgetOld(state_->configuration().keep, stop);
    endYieldingToRestores();
    if (outcome.trouble == ResticTrouble::Stopped)
        return outcome;
    verification_->noteChange();
    isConnected_ = outcome.succeeded(); // Connecting removes the locks of dead processes.
    if (!isConnected_)
        logWarning("Old snapshots cannot be forgotten yet: %@", reasonOf(outcome));
    return {};
}

// Returns false while a restore is running.
bool BackupRunner::beginYieldingToRestores() {
    const std::scoped_lock guard(mutex_);
    work_.yieldsToRestores = !isRestoring_;
    return work_.yieldsToRestores;
}

void BackupRunner::endYieldingToRestores() {
    const std::scoped_lock guard(mutex_);
    work_.yieldsToRestores = false;
}

void BackupRunner::takeOutcome(const ResticOutcome& outcome) {
    if (outcome.trouble == ResticTrouble::Stopped) {
        isConnected_ = false; // The repository may have a snapshot that the index lacks.
        state_->setIndexCurrent(false);
        return;
    }
    if (!outcome.succeeded()) {
        isConnected_ = false;
        state_->setIndexCurrent(false, reasonOf(outcome));
    }
    noteOutcome(outcome);
    report(outcome);
}

void BackupRunner::noteOutcome(const ResticOutcome& outcome) {
    std::chrono::milliseconds wait{0};
    {
        const std::scoped_lock guard(mutex_);
        if (outcome.succeeded())
            return schedule_.noteSuccess();
        wait = schedule_.noteFailure(Clock::now());
    }
    logWarning("Backup failed: %@; retrying in %lld s", reasonOf(outcome),
               std::chrono::ceil<std::chrono::seconds>(wait).count());
}

void BackupRunner::report(const ResticOutcome& outcome) {
    BackupActivity activity = state_->activity();
    activity.trouble = serviceStateFor(outcome.trouble);
    state_->setActivity(activity);
    const Alert alert = alertFor(outcome, keeper_->repository().restic().place());
    noteFailure(alert.title);
    if (activity.trouble)
        state_->alerts()->raise(alert);
    else
        state_->alerts()->withdraw(backupAlert);
}

} // namespace kelvane
