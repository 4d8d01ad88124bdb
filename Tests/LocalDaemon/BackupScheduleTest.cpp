#include "LocalDaemon/Backup/BackupSchedule.h"
#include "LocalDaemon/Backup/BackupProgress.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using Task = BackupSchedule::Task;
using Conditions = BackupSchedule::Conditions;
using Seconds = std::vector<std::int64_t>;

constexpr std::int64_t day = 86400;
constexpr std::int64_t never = -1;
constexpr BackupNeed pending{.mayAdd = true, .mayRead = true, .isKnown = true, .isPending = true};
constexpr BackupNeed nothingPending{.mayAdd = true, .mayRead = true, .isKnown = true};
constexpr BackupNeed mayOnlyRead{.mayRead = true, .isKnown = true, .isPending = true};
constexpr BackupNeed isScanning{.mayAdd = true, .mayRead = true, .isPending = true};

BackupSchedule::Time at(std::int64_t seconds) {
    return BackupSchedule::Time(std::chrono::seconds(1'000'000 + seconds));
}

BackupSchedule scheduleAfter(std::optional<std::int64_t> age = std::nullopt) {
    return {{.quiet = 5s, .longestWait = 60s, .firstRetry = 10s, .longestRetry = 35s},
            900s,
            age ? std::optional(std::chrono::seconds(*age)) : std::nullopt,
            at(0)};
}

// Returns after how many seconds the task is due: queries the schedule when it asks for that, and at each
// change.
std::int64_t timeOf(Task task, BackupSchedule& schedule, Conditions conditions, std::int64_t now = 0,
                    const std::set<std::int64_t>& changes = {}) {
    while (now < 30 * day) {
        conditions.need.changes += changes.contains(now) ? 1U : 0U;
        const BackupSchedule::Step step = schedule.next(conditions, at(now));
        if (step.task != Task::None || step.wait <= 0s) {
            EXPECT_EQ(step.task, task);
            return now;
        }
        const auto change = changes.upper_bound(now);
        now += std::chrono::ceil<std::chrono::seconds>(step.wait).count();
        now = change == changes.end() ? now : std::min(now, *change);
    }
    return never;
}

TEST(BackupSchedule, BacksUpAfterAQuietTimeTheLongestWaitOrTheInterval) {
    std::set<std::int64_t> always;
    for (std::int64_t second = 0; second < 100; second += 3)
        always.insert(second);
    // The age of the last backup at the start, the times of changes and that of the next backup.
    const std::tuple<std::optional<std::int64_t>, std::set<std::int64_t>, std::int64_t> cases[] = {
        {{}, {}, 5},    {{}, {0, 4, 8}, 13}, {{}, always, 60}, {0, {}, 900},      {890, {}, 10},
        {890, {8}, 13}, {898, always, 60},   {900, {}, 5},     {30 * day, {}, 5}, {-day, {}, 5}};
    for (const auto& [age, changes, begins] : cases) {
        BackupSchedule schedule = scheduleAfter(age);
        EXPECT_EQ(timeOf(Task::BackUp, schedule, {.need = pending, .isConnected = true}, 0, changes), begins)
            << age.value_or(-1) << ' ' << changes.size();
    }
    BackupSchedule schedule = scheduleAfter();
    schedule.noteBackup(at(100));
    const BackupNeed changed{
        .mayAdd = true, .mayRead = true, .isKnown = true, .isPending = true, .changes = 1};
    EXPECT_EQ(timeOf(Task::BackUp, schedule, {.need = changed, .isConnected = true}, 110), 1000);
    schedule.noteBackup(at(1010));
    EXPECT_EQ(timeOf(Task::BackUp, schedule, {.need = changed, .isOrdered = true}, 1020), 1020);
}

TEST(BackupSchedule, WaitsTwiceAsLongAfterEachFailureUpToTheLongestWait) {
    BackupSchedule schedule = scheduleAfter();
    const Conditions ordered{.need = pending, .isOrdered = true, .isConnected = true};
    const auto failures = [&](int count, std::int64_t now) {
        Seconds begins;
        for (int failure = 0; failure < count; ++failure) {
            EXPECT_GT(schedule.noteFailure(at(now)), 0s);
            begins.push_back(now = timeOf(Task::BackUp, schedule, ordered, now));
        }
        return begins;
    };
    EXPECT_EQ(failures(4, 0), (Seconds{10, 30, 65, 100}));
    schedule.noteSuccess();
    EXPECT_EQ(failures(2, 100), (Seconds{110, 130}));
    EXPECT_EQ(schedule.noteFailure(at(130)), 35s);
    Conditions urgent = ordered;
    urgent.isUrgent = true;
    EXPECT_EQ(timeOf(Task::BackUp, schedule, urgent, 131), 131);
    schedule.noteSuccess();
    schedule.postpone(at(140));
    EXPECT_EQ(timeOf(Task::BackUp, schedule, ordered, 141), 175);
}

TEST(BackupSchedule, ChoosesTheTaskThatTheConditionsAllow) {
    constexpr auto now = 0ms;
    const std::tuple<const char*, Task, std::int64_t, Conditions> cases[] = {
        {"nothing is pending", Task::Connect, 5, {.need = nothingPending, .untilVerification = now}},
        {"paused, or over the quota", Task::Connect, 5, {.need = mayOnlyRead}},
        {"a restore", Task::Connect, 0, {.need = mayOnlyRead, .isRestoring = true, .isUrgent = true}},
        {"urgent alone", Task::Connect, 5, {.need = nothingPending, .isUrgent = true}},
        {"an order while scanning", Task::Connect, 0, {.need = isScanning, .isOrdered = true}},
        {"an order", Task::BackUp, 0, {.need = nothingPending, .isOrdered = true}},
        {"disabled", Task::None, never, {.isOrdered = true}},
        {"disabled later", Task::None, never, {.isConnected = true, .untilVerification = now}},
        {"requested while backups are not allowed",
         Task::None,
         never,
         {.need = mayOnlyRead, .isOrdered = true, .isConnected = true}},
        {"verifying", Task::Verify, 0, {mayOnlyRead, true, false, true, false, now}},
        {"soon", Task::BackUp, 5, {.need = pending, .isConnected = true, .untilVerification = 7s}},
        {"a restore is first", Task::None, never, {nothingPending, false, true, true, false, now}},
    };
    for (const auto& [what, task, after, conditions] : cases) {
        BackupSchedule schedule = scheduleAfter();
        EXPECT_EQ(timeOf(task, schedule, conditions), after) << what;
    }
    BackupSchedule schedule = scheduleAfter();
    Conditions idle{.need = nothingPending, .isConnected = true, .untilVerification = 7s};
    EXPECT_EQ(schedule.next(idle, at(0)).wait, 7s);
    schedule.postpone(at(0));
    idle.untilVerification = now;
    EXPECT_EQ(timeOf(Task::Verify, schedule, idle, 1), 35);
}

TEST(BackupSchedule, PlansTheNextBackupAndSaysWhyNoneBegins) {
    using Obstacle = BackupSchedule::Obstacle;
    constexpr std::optional<std::int64_t> none;
    const std::tuple<std::optional<std::int64_t>, std::int64_t, Conditions, Obstacle,
                     std::optional<std::int64_t>>
        cases[] = {{none, never, {.need = pending}, Obstacle::Changes, 5},
                   {900, never, {.need = pending}, Obstacle::Changes, 5},
                   {600, never, {.need = pending}, Obstacle::Interval, 300},
                   {600, 2, {.need = pending}, Obstacle::Interval, 300},
                   {600, 2, {.need = pending, .isOrdered = true}, Obstacle::Retry, 12},
                   {none, 2, {.need = pending}, Obstacle::Retry, 12},
                   {600, never, {.need = pending, .isOrdered = true}, Obstacle::None, none},
                   {600, never, {.need = nothingPending}, Obstacle::NothingPending, none},
                   {600, never, {.need = isScanning}, Obstacle::Scanning, none},
                   {600, 2, {.need = mayOnlyRead, .isOrdered = true}, Obstacle::NotAllowed, none}};
    for (const auto& [age, failedAt, conditions, obstacle, time] : cases) {
        BackupSchedule schedule = scheduleAfter(age);
        static_cast<void>(schedule.next(conditions, at(0)));
        if (failedAt != never)
            static_cast<void>(schedule.noteFailure(at(failedAt)));
        const BackupSchedule::Plan plan = schedule.plan(conditions, at(3));
        EXPECT_EQ(plan.obstacle, obstacle) << failedAt << ' ' << static_cast<int>(obstacle);
        EXPECT_EQ(plan.time, time ? std::optional(at(*time)) : std::nullopt) << static_cast<int>(obstacle);
    }
}

TEST(BackupSchedule, StopsATaskThatMayNotGoOnAndABackupWhosePriorityChanges) {
    BackupNeed lower = pending;
    lower.hasLowerPriority = true;
    const std::tuple<BackupNeed, std::int64_t, std::set<Task>> cases[] = {
        {nothingPending, 900, {}},          {pending, 899, {}},
        {pending, 900, {Task::Verify}},     {lower, 0, {Task::BackUp}},
        {mayOnlyRead, 900, {Task::BackUp}}, {{}, 0, {Task::Connect, Task::BackUp, Task::Verify}}};
    const BackupSchedule schedule = scheduleAfter(0);
    for (const auto& [need, now, stopped] : cases)
        for (const Task task : {Task::None, Task::Connect, Task::BackUp, Task::Verify})
            EXPECT_EQ(schedule.mustStop(task, pending, need, at(now)), stopped.contains(task))
                << static_cast<int>(task) << " at " << now;
}

// One status per second. 'u': an unchanged file was read before it, which the next two statuses may still
// count; a digit: the number of counted tens of bytes. A speed needs three seconds. `savedFile` is saved
// before the last status.
TEST(BackupProgress, CountsAsSpeedOnlyWhatIsReadOfChangedFiles) {
    constexpr std::optional<std::uint64_t> none;
    const std::tuple<const char*, std::uint64_t, std::optional<std::uint64_t>, std::optional<std::uint64_t>,
                     std::uint64_t>
        cases[] = {{"00", 0, none, none, 0},         {"012", 0, none, none, 30},
                   {"0123", 0, 20, 2, 60},           {"0123", 90, 20, 1, 90},
                   {"01230", 0, 15, 3, 60},          {"01u222", 0, none, none, 30},
                   {"01u2222", 0, 16, 4, 50},        {"u9u9u9u9", 0, none, none, 0},
                   {"u9u9u9u9", 70, none, none, 70}, {"0000000000000000000000000000000000000", 0, 0, none, 0},
                   {"04444", 0, 40, none, 160}}; // more than were pending
    for (const auto& [statuses, savedFile, speed, left, saved] : cases) {
        BackupProgress progress(1000, 100);
        BackupSchedule::Time now = at(0);
        std::uint64_t counted = 0;
        for (const char* status = statuses; *status != '\0'; ++status) {
            if (*status == 'u') {
                progress.noteUnchangedFile();
                continue;
            }
            if (status[1] == '\0' && savedFile > 0)
                progress.noteSavedFile(savedFile);
            counted += 10 * static_cast<std::uint64_t>(*status - '0');
            progress.noteStatus(counted, now += 1s);
        }
        EXPECT_EQ(progress.bytesPerSecond(), speed) << statuses;
        EXPECT_EQ(progress.secondsLeft(), left) << statuses;
        EXPECT_EQ(progress.bytesSaved(), saved) << statuses;
    }
    BackupProgress initial(0, std::nullopt);
    initial.noteStatus(30, at(0));
    EXPECT_EQ(initial.bytesSaved(), 30U) << "nothing is unchanged";
}

} // namespace
} // namespace kelvane
