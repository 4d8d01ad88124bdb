#include "LocalDaemon/Backup/BackupRunner.h"

#include "LocalDaemon/Backup/BackupTrouble.h"
#include "Support/GuardedWork.h"
#include "Support/Logging.h"

#include <algorithm>
#include <utility>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::hours forever{24};
// At once; more are backed up as everything is.
constexpr std::size_t mostWanted = 100;

} // namespace

BackupRunner::BackupRunner(std::shared_ptr<DaemonState> state, std::shared_ptr<IndexKeeper> keeper,
                           std::shared_ptr<Verification> verification, const Options& options)
    : state_(std::move(state)),
      keeper_(std::move(keeper)),
      verification_(std::move(verification)),
      options_(options),
      lastChange_(Clock::now()),
      connectAt_(lastChange_ + options.quiet) {
    if (const Snapshot* const last = keeper_->index()->newestCompleteSnapshot()) {
        const auto age = std::chrono::system_clock::now() -
                         std::chrono::system_clock::time_point(std::chrono::seconds(last->time));
        const auto left = std::chrono::duration_cast<Clock::duration>(state_->configuration().interval - age);
        // Made while the clock was ahead, it may be of any age.
        notBefore_ = Clock::now() + (age < 0s ? 0s : std::max<Clock::duration>(left, 0s));
    }
}

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
        if (current_)
            current_->set();
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

void BackupRunner::noteNeed(const BackupNeed& need) {
    const std::scoped_lock guard(mutex_);
    // Another priority is for the whole of a backup: the one that runs begins again with it.
    if (current_ && isAdding_ && need.hasLowerPriority != need_.hasLowerPriority)
        current_->set();
    isUrgent_ = isUrgent_ || (need.mayAdd && !need_.mayAdd);
    need_ = need;
    isNoted_ = true;
    if (current_ && !(isAdding_ ? need.mayAdd : need.mayRead))
        current_->set();
    if (current_ && isVerifying_ && !isAdding_ && need.mayAdd && need.isWaiting &&
        Clock::now() >= nextBackup_)
        current_->set();
    changed_.notify_all();
}

void BackupRunner::noteRules() {
    const std::scoped_lock guard(mutex_);
    if (current_ && isAdding_)
        current_->set();
}

void BackupRunner::noteRestores(bool areWaiting) {
    const std::scoped_lock guard(mutex_);
    isUrgent_ = isUrgent_ || (areWaiting && !isRestoring_);
    isRestoring_ = areWaiting;
    if (isRestoring_ && (isForgetting_ || isVerifying_) && current_)
        current_->set();
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
    if (current_ && (isAdding_ ? path != everything : isVerifying_))
        current_->set(); // what it has saved already is not saved again
    changed_.notify_all();
}

void BackupRunner::run() {
    noteNeed(state_->backupNeed());
    for (;;) {
        const Task task = nextTask(Clock::now());
        {
            std::unique_lock guard(mutex_);
            if (task == Task::None)
                changed_.wait_for(guard, wait_, [this] { return stopping_ || isNoted_; });
            if (stopping_)
                return;
        }
        if (task != Task::None)
            runGuarded(
                "backing up", [this](const std::string& reason) { takeFailure(reason); },
                [&] { perform(task); });
    }
}

void BackupRunner::takeFailure(const std::string& reason) {
    {
        const std::scoped_lock guard(mutex_);
        current_.reset();
        isForgetting_ = false;
    }
    isConnected_ = false;
    state_->setIndexCurrent(false, reason);
    retry_ = Clock::now() + options_.longestRetry;
    BackupActivity activity = state_->activity();
    activity.isRunning = false;
    activity.currentFile.clear();
    activity.done = {};
    state_->setActivity(activity);
    state_->raiseAlert(alertForInternalError(reason));
}

BackupRunner::Task BackupRunner::nextTask(Clock::time_point now) {
    BackupNeed need;
    bool isWanted = false;
    bool isRestoring = false;
    {
        const std::scoped_lock guard(mutex_);
        isNoted_ = false;
        need = need_;
        isWanted = !wanted_.empty();
        isRestoring = isRestoring_;
        isConnected_ = isConnected_ && !mustConnect_;
        if (std::exchange(isUrgent_, false)) {
            retry_ = now;
            connectAt_ = isRestoring_ ? now : connectAt_;
        }
    }
    const Clock::time_point at = timeOfNextTask(need, now);
    const Clock::time_point next = std::max(retry_, isWanted       ? now
                                                    : isConnected_ ? at
                                                                   : std::min(at, connectAt_));
    wait_ = std::chrono::ceil<std::chrono::milliseconds>(std::min<Clock::duration>(next - now, forever));
    const bool mayBackUp = need.mayAdd && need.isKnown && (isWanted || need.isWaiting);
    if (next <= now && need.mayRead && mayBackUp && (isWanted || at <= now))
        return Task::BackUp;
    if (next <= now && need.mayRead && !isConnected_)
        return Task::Connect;
    if (next <= now)
        wait_ = forever; // what keeps it from its work ends with a note, and not with time
    if (!isConnected_ || !need.mayRead || isRestoring || retry_ > now)
        return Task::None;
    const std::chrono::milliseconds untilDue = verification_->timeUntilDue();
    wait_ = std::min(wait_, untilDue);
    return untilDue == 0ms ? Task::Verify : Task::None;
}

// Of a backup of what is waiting.
BackupRunner::Clock::time_point BackupRunner::timeOfNextTask(const BackupNeed& need, Clock::time_point now) {
    if (std::exchange(changes_, need.changes) != need.changes)
        lastChange_ = now;
    if (!need.isWaiting)
        waitingSince_.reset();
    else if (!waitingSince_)
        waitingSince_ = now;
    if (!waitingSince_ || !need.mayAdd || !need.isKnown)
        return now + forever;
    return std::max(notBefore_,
                    std::min(lastChange_ + options_.quiet, *waitingSince_ + options_.longestWait));
}

void BackupRunner::perform(Task task) {
    const auto stop = std::make_shared<StopSignal>();
    {
        const std::scoped_lock guard(mutex_);
        isAdding_ = task == Task::BackUp;
        if (stopping_ || !(isAdding_ ? need_.mayAdd : need_.mayRead))
            return;
        if (task == Task::Verify && (isRestoring_ || (!wanted_.empty() && need_.mayAdd && need_.isKnown)))
            return;
        isVerifying_ = task == Task::Verify;
        nextBackup_ = notBefore_;
        current_ = stop;
    }
    if (task == Task::Verify)
        return verify(*stop);
    const std::uint64_t orders = state_->backupOrders();
    ResticOutcome outcome = keeper_->repository().waitForAnswer(*stop);
    if (outcome.succeeded())
        outcome = attempt(task, *stop);
    if (!outcome.succeeded() && outcome.wasCacheDamaged) {
        isConnected_ = false; // the index takes in what was made with less in it than should be
        outcome = attempt(task, *stop);
    }
    if (outcome.trouble == ResticTrouble::Locked)
        outcome = attemptAgain(task, *stop, std::move(outcome));
    {
        const std::scoped_lock guard(mutex_);
        current_.reset();
    }
    takeOutcome(outcome);
    BackupActivity activity = state_->activity();
    activity.isRunning = false;
    activity.currentFile.clear();
    if (!outcome.succeeded())
        activity.done = {};
    state_->setActivity(activity);
    if (outcome.trouble != ResticTrouble::Stopped)
        state_->takeOrdersTried(orders);
}

ResticOutcome BackupRunner::attempt(Task task, const StopSignal& stop) {
    ResticOutcome outcome = isConnected_ && keeper_->isCurrent() ? ResticOutcome() : connect(stop);
    if (outcome.succeeded() && task == Task::BackUp)
        outcome = backUpWanted(stop);
    return outcome;
}

// After a lock was in the way.
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
    // Nothing may be made yet, and nothing is there: that is in order.
    if (!mayMake && !isAskedFor && outcome.trouble == ResticTrouble::NoRepository &&
        keeper_->index()->repositoryId().empty()) {
        retry_ = Clock::now() + options_.longestRetry;
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

// An order that comes in the meantime stays: what it means may not be in this backup.
ResticOutcome BackupRunner::backUpWanted(const StopSignal& stop) {
    const std::uint64_t orders = state_->backupOrders();
    std::set<std::string> wanted;
    {
        const std::scoped_lock guard(mutex_);
        wanted = std::exchange(wanted_, {});
    }
    const bool isWanted = !wanted.empty();
    wanted.erase(everything);
    ResticOutcome outcome;
    while (!wanted.empty() && outcome.succeeded()) {
        outcome = backUp({*wanted.begin()}, stop);
        if (outcome.succeeded())
            wanted.erase(wanted.begin());
    }
    if (outcome.succeeded())
        outcome = backUpEverything(stop);
    if (outcome.succeeded())
        outcome = verifyStored(isWanted, stop);
    if (outcome.succeeded()) {
        notBefore_ = Clock::now() + state_->configuration().interval;
        waitingSince_.reset();
        state_->takeOrdersDone(orders);
        return forgetOld(stop);
    }
    if (isWanted)
        wanted.insert(everything); // also what comes after what was to come first
    const std::scoped_lock guard(mutex_);
    wanted_.merge(wanted);
    return outcome;
}

// What cannot be forgotten now, because a restore is at work in the repository, is forgotten another time.
ResticOutcome BackupRunner::forgetOld(const StopSignal& stop) {
    {
        const std::scoped_lock guard(mutex_);
        isForgetting_ = !isRestoring_;
        if (isRestoring_)
            return {};
    }
    const ResticOutcome outcome = keeper_->forgetOld(state_->configuration().keep, stop);
    {
        const std::scoped_lock guard(mutex_);
        isForgetting_ = false;
    }
    if (outcome.trouble == ResticTrouble::Stopped)
        return outcome;
    verification_->noteChange();
    isConnected_ = outcome.succeeded(); // connecting takes locks away that dead processes have left
    if (!isConnected_)
        KelvaneSystemLog("Old backups are not forgotten yet: %@", reasonOf(outcome));
    return {};
}

void BackupRunner::takeOutcome(const ResticOutcome& outcome) {
    if (outcome.trouble == ResticTrouble::Stopped) {
        isConnected_ = false; // a snapshot may stand that the index does not know of
        state_->setIndexCurrent(false);
        return;
    }
    if (outcome.succeeded()) {
        retryWait_ = 0ms;
    } else {
        isConnected_ = false;
        state_->setIndexCurrent(false, reasonOf(outcome));
        retryWait_ = std::clamp(retryWait_ * 2, options_.firstRetry, options_.longestRetry);
        retry_ = Clock::now() + retryWait_;
        KelvaneSystemLog("The backup came to nothing and is tried again in %lld s: %@",
                         std::chrono::ceil<std::chrono::seconds>(retryWait_).count(), reasonOf(outcome));
    }
    report(outcome);
}

void BackupRunner::report(const ResticOutcome& outcome) {
    BackupActivity activity = state_->activity();
    activity.trouble = serviceStateFor(outcome.trouble);
    state_->setActivity(activity);
    if (activity.trouble)
        state_->raiseAlert(alertFor(outcome, keeper_->repository().restic().place()));
    else
        state_->withdrawAlert(backupAlert);
}

} // namespace kelvane
