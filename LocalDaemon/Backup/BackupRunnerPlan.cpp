// When the next backup starts, and why none is running.

#include "Foundation/Format.h"
#include "LocalDaemon/Backup/BackupRunner.h"

namespace kelvane {
namespace {

// Two readings of both clocks differ by less, unless one was set or stopped.
constexpr std::chrono::seconds clockTolerance(2);

} // namespace

// A date computed from two clocks differs slightly each time; without the tolerance panes would see a
// change each time.
PlannedBackup BackupRunner::planned() {
    const std::scoped_lock guard(mutex_);
    if (work_.task == Task::Connect || work_.task == Task::BackUp)
        return {.waitingFor = "Connecting to the destination."};
    const Clock::time_point now = Clock::now();
    const BackupSchedule::Plan plan =
        schedule_.plan({.need = need_, .isOrdered = !wanted_.empty(), .isRestoring = isRestoring_}, now);
    PlannedBackup planned{.waitingFor = reasonFor(plan.obstacle)};
    if (!plan.time)
        return planned;
    const auto date = std::chrono::system_clock::now() + (*plan.time - now);
    if (std::chrono::abs(date - plannedDate_) > clockTolerance)
        plannedDate_ = std::chrono::floor<std::chrono::seconds>(date);
    planned.date = plannedDate_;
    return planned;
}

std::string BackupRunner::reasonFor(BackupSchedule::Obstacle obstacle) const {
    using Obstacle = BackupSchedule::Obstacle;
    if (!failure_.empty() && (obstacle == Obstacle::Retry || obstacle == Obstacle::NothingPending))
        return failure_;
    switch (obstacle) {
    case Obstacle::None: return "The backup is about to begin.";
    case Obstacle::NotAllowed: return {}; // The state knows the reason.
    case Obstacle::Scanning: return "Files are being scanned.";
    case Obstacle::NothingPending:
        return need_.hasUnread ? "The pending files could not be read." : "No files are pending.";
    case Obstacle::Retry: return "The last attempt failed.";
    case Obstacle::Changes: return "Files are still changing.";
    case Obstacle::Interval:
        return formatText("Backups are at least %lld minutes apart.",
                          static_cast<long long>(state_->configuration().interval.count()));
    }
    return {};
}

void BackupRunner::noteFailure(const std::string& failure) {
    const std::scoped_lock guard(mutex_);
    failure_ = failure;
}

} // namespace kelvane
