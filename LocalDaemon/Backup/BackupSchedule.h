#pragma once

#include "LocalDaemon/State/BackupNeed.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace kelvane {

// Decides what the backup does next, and when, from the conditions and the time that the caller gives. Has
// no clock, thread or lock of its own.
//
// Pending files are backed up when nothing has changed for a while, but not sooner than the interval after
// the previous backup. After a failure nothing is tried for a wait that doubles with each further failure.
class BackupSchedule {
public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    struct Options {
        std::chrono::milliseconds quiet = std::chrono::seconds(5); // Time without a change before a backup.
        // The longest wait for that time while files keep changing.
        std::chrono::milliseconds longestWait = std::chrono::minutes(1);
        std::chrono::milliseconds firstRetry = std::chrono::seconds(10);
        std::chrono::milliseconds longestRetry = std::chrono::minutes(15);
    };

    enum class Task {
        None,
        Connect, // Update the index from the repository.
        BackUp,
        Verify,
    };

    // The conditions other than the time.
    struct Conditions {
        BackupNeed need = {};
        bool isOrdered = false;   // A backup was requested, which ignores the quiet period and the interval.
        bool isRestoring = false; // Files are being restored.
        bool isConnected = false; // The index is up to date.
        bool isUrgent = false;    // Ends the wait after a failure.
        std::chrono::milliseconds untilVerification = std::chrono::milliseconds::max();
    };

    // What to do now. If there is no task, ask again after `wait`, or when a condition changes.
    struct Step {
        Task task = Task::None;
        std::chrono::milliseconds wait{0};
    };

    // Why no backup starts now.
    enum class Obstacle {
        None,
        NotAllowed,
        Scanning,
        NothingPending,
        Retry,    // The wait after a failure.
        Changes,  // Files keep changing.
        Interval, // The wait after the previous backup.
    };
    struct Plan {
        Obstacle obstacle = Obstacle::None;
        // When the next backup starts if no condition changes; none when it is not planned.
        std::optional<Time> time = std::nullopt;
    };

    // `age`: the age of the last complete backup, so that the interval continues after a restart. A
    // negative age, from a clock that was ahead, counts as expired.
    BackupSchedule(const Options& options, Clock::duration interval, std::optional<Clock::duration> age,
                   Time now);

    // `now` must never go back between calls.
    [[nodiscard]] Step next(const Conditions& conditions, Time now);
    // Returns the next backup for the pending files that `next` was last given.
    [[nodiscard]] Plan plan(const Conditions& conditions, Time now) const;
    // Returns whether the running task has to stop because `before` has changed to `need`.
    [[nodiscard]] bool mustStop(Task underWay, const BackupNeed& before, const BackupNeed& need,
                                Time now) const;

    // Records a complete backup, which starts the interval.
    void noteBackup(Time now) { nextInterval_ = now + interval_; }
    void noteSuccess() { retryWait_ = {}; }
    // Returns the wait until the next attempt.
    std::chrono::milliseconds noteFailure(Time now);
    // Starts the longest wait between attempts.
    void postpone(Time now) { notBefore_ = now + options_.longestRetry; }

private:
    void noteChanges(const BackupNeed& need, Time now);
    [[nodiscard]] Time timeOfBackup(const BackupNeed& need, Time now) const;

    const Options options_;
    const Clock::duration interval_;
    std::uint64_t changes_ = 0;
    Time lastChange_;
    std::optional<Time> pendingSince_;
    Time connectAt_;      // When to connect even if no files are pending.
    Time nextInterval_{}; // The earliest time of a backup that nobody has requested.
    Time notBefore_{};    // The earliest time of any task.
    std::chrono::milliseconds retryWait_{0};
};

} // namespace kelvane
