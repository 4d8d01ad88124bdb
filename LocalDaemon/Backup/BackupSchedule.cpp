#include "LocalDaemon/Backup/BackupSchedule.h"

#include <algorithm>
#include <utility>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::hours forever{24};

} // namespace

BackupSchedule::BackupSchedule(const Options& options, Clock::duration interval,
                               std::optional<Clock::duration> age, Time now)
    : options_(options), interval_(interval), lastChange_(now), connectAt_(now + options.quiet) {
    if (age && *age >= 0s)
        nextInterval_ = now + (interval - *age);
}

BackupSchedule::Step BackupSchedule::next(const Conditions& conditions, Time now) {
    const BackupNeed& need = conditions.need;
    noteChanges(need, now);
    if (conditions.isUrgent) {
        notBefore_ = now;
        connectAt_ = conditions.isRestoring ? now : connectAt_;
    }
    const Time backup = timeOfBackup(need, now);
    Time next = conditions.isConnected ? backup : std::min(backup, connectAt_);
    next = std::max(notBefore_, conditions.isOrdered ? now : next);
    const bool isDue = next <= now && need.mayRead;
    if (isDue && (backup <= now || (conditions.isOrdered && need.mayAdd && need.isKnown)))
        return {Task::BackUp};
    if (isDue && !conditions.isConnected)
        return {Task::Connect};
    // A due task that a condition prevents waits for a change of that condition, not for a time.
    Step step{Task::None, forever};
    if (next > now)
        step.wait =
            std::chrono::ceil<std::chrono::milliseconds>(std::min<Clock::duration>(next - now, forever));
    if (!conditions.isConnected || !need.mayRead || conditions.isRestoring)
        return step;
    const auto untilVerification = std::max(conditions.untilVerification,
                                            std::chrono::ceil<std::chrono::milliseconds>(notBefore_ - now));
    if (untilVerification <= 0ms)
        return {Task::Verify};
    step.wait = std::min(step.wait, untilVerification);
    return step;
}

BackupSchedule::Plan BackupSchedule::plan(const Conditions& conditions, Time now) const {
    const BackupNeed& need = conditions.need;
    if (!need.mayAdd)
        return {Obstacle::NotAllowed};
    if (!need.isKnown)
        return {Obstacle::Scanning};
    if (!conditions.isOrdered && !need.isPending)
        return {Obstacle::NothingPending};
    const Time wanted = conditions.isOrdered || !pendingSince_ ? now : timeOfBackup(need, now);
    if (std::max(wanted, notBefore_) <= now)
        return {Obstacle::None};
    if (notBefore_ >= wanted)
        return {Obstacle::Retry, notBefore_};
    return {wanted == nextInterval_ ? Obstacle::Interval : Obstacle::Changes, wanted};
}

// A new priority applies to the whole backup, which starts again. Pending files do not wait until a
// verification is complete.
bool BackupSchedule::mustStop(Task underWay, const BackupNeed& before, const BackupNeed& need,
                              Time now) const {
    switch (underWay) {
    case Task::None: return false;
    case Task::Connect: return !need.mayRead;
    case Task::BackUp: return !need.mayAdd || need.hasLowerPriority != before.hasLowerPriority;
    case Task::Verify: return !need.mayRead || (need.mayAdd && need.isPending && now >= nextInterval_);
    }
    return false;
}

std::chrono::milliseconds BackupSchedule::noteFailure(Time now) {
    retryWait_ = std::clamp(retryWait_ * 2, options_.firstRetry, options_.longestRetry);
    notBefore_ = now + retryWait_;
    return retryWait_;
}

void BackupSchedule::noteChanges(const BackupNeed& need, Time now) {
    if (std::exchange(changes_, need.changes) != need.changes)
        lastChange_ = now;
    if (!need.isPending)
        pendingSince_.reset();
    else if (!pendingSince_)
        pendingSince_ = now;
}

// Returns the time of a backup that nobody has requested.
BackupSchedule::Time BackupSchedule::timeOfBackup(const BackupNeed& need, Time now) const {
    if (!pendingSince_ || !need.mayAdd || !need.isKnown)
        return now + forever;
    return std::max(nextInterval_,
                    std::min(lastChange_ + options_.quiet, *pendingSince_ + options_.longestWait));
}

} // namespace kelvane
