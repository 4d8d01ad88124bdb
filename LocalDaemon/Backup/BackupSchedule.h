#pragma once

#include "LocalDaemon/State/BackupNeed.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace kelvane {

// What the backup does next, and how long it waits for it: decided from what the caller says and the time
// that it gives. Has no clock, thread or lock of its own.
//
// Pending files are backed up when nothing has changed for a while, but not sooner than the interval after
// the previous backup. After a failure nothing is tried for a wait that doubles with each further failure.
class BackupSchedule {
public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    struct Options {
        std::chrono::milliseconds quiet = std::chrono::seconds(5);       // without a change, before a backup
        std::chrono::milliseconds longestWait = std::chrono::minutes(1); // for that, on a restless machine
        std::chrono::milliseconds firstRetry = std::chrono::seconds(10);
        std::chrono::milliseconds longestRetry = std::chrono::minutes(15);
    };

    enum class Task {
        None,
        Connect, // make the index that of the repository
        BackUp,
        Verify,
    };

    // What decides besides the time.
    struct Conditions {
        BackupNeed need = {};
        bool isOrdered = false;   // somebody ordered a backup: it ignores the quiet period and the interval
        bool isRestoring = false; // files
        bool isConnected = false; // the index is that of the repository
        bool isUrgent = false;    // the wait after a failure ends
        std::chrono::milliseconds untilVerification = std::chrono::milliseconds::max();
    };

    // Of no task: ask again after `wait`, or as soon as a condition is another one.
    struct Step {
        Task task = Task::None;
        std::chrono::milliseconds wait{0};
    };

    // Why no backup begins now.
    enum class Obstacle {
        None,
        NotAllowed,
        Scanning,
        NothingPending,
        Retry,    // the wait after a failure
        Changes,  // files keep changing
        Interval, // since the previous backup
    };
    struct Plan {
        Obstacle obstacle = Obstacle::None;
        std::optional<Time> time =
            std::nullopt; // of the next backup, if no condition changes; none: not planned
    };

    // `age`: of the last complete backup, so that the interval goes on over a restart. A negative one was
    // made while the clock was ahead, and counts as any age.
    BackupSchedule(const Options& options, Clock::duration interval, std::optional<Clock::duration> age,
                   Time now);

    // `now` never goes back from call to call.
    [[nodiscard]] Step next(const Conditions& conditions, Time now);
    // The next backup, as far as `next` has been told of the pending files.
    [[nodiscard]] Plan plan(const Conditions& conditions, Time now) const;
    // Whether the task under way has to stop because `before` has become `need`.
    [[nodiscard]] bool mustStop(Task underWay, const BackupNeed& before, const BackupNeed& need,
                                Time now) const;

    // A backup of everything has been made: the interval begins.
    void noteBackup(Time now) { nextInterval_ = now + interval_; }
    void noteSuccess() { retryWait_ = {}; }
    // Returns how long nothing is tried from now on.
    std::chrono::milliseconds noteFailure(Time now);
    // Nothing is tried for the longest wait.
    void postpone(Time now) { notBefore_ = now + options_.longestRetry; }

private:
    void noteChanges(const BackupNeed& need, Time now);
    [[nodiscard]] Time timeOfBackup(const BackupNeed& need, Time now) const;

    const Options options_;
    const Clock::duration interval_;
    std::uint64_t changes_ = 0;
    Time lastChange_;
    std::optional<Time> pendingSince_;
    Time connectAt_;      // although nothing is to be backed up
    Time nextInterval_{}; // no backup before it that nobody has ordered
    Time notBefore_{};    // anything
    std::chrono::milliseconds retryWait_{0};
};

} // namespace kelvane
