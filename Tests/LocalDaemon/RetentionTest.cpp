#include "LocalDaemon/Index/Retention.h"
#include "LocalDaemon/Index/RetentionRecord.h"
#include "LocalDaemon/Restic/ResticProcesses.h"
#include "Platform/MachineClock.h"
#include "Platform/Processes/ChildProcess.h"
#include "Support/Logging.h"
#include "Tests/Harness/AsNobody.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t day = 86400;
constexpr std::int64_t today = 20'000 * day;

Snapshot made(const std::string& id, std::int64_t daysAgo, bool isPartial = false, std::uint64_t sequence = 0,
              const std::string& parent = {}) {
    return {id, today - daysAgo * day, isPartial, sequence, parent};
}

using Ids = std::vector<std::string>;

TEST(Retention, ForgetsWhatWasReplacedLongEnoughAgo) {
    const struct {
        const char* what;
        std::vector<Snapshot> snapshots;
        Ids forgotten;
        std::int64_t steadyDays = 1000; // the clock's value
        std::set<std::string> held = {};
        std::map<std::uint64_t, std::int64_t> ended = {}; // days since the end, by sequence number
    } cases[] = {
        {"nothing", {}, {}},
        {"the newest, however old", {made("a", 90)}, {}},
        {"replaced today after 32 days off", {made("a", 32), made("b", 0)}, {}},
        {"replaced 30 days ago", {made("a", 90), made("b", 30), made("c", 0)}, {}},
        {"replaced 31 days ago", {made("a", 90), made("b", 31), made("c", 0)}, {"a"}},
        {"all but the last two", {made("a", 90), made("b", 80), made("c", 70), made("d", 2)}, {"a", "b"}},
        {"what a partial one replaces", {made("a", 90), made("p", 80, true), made("b", 2)}, {}},
        {"a partial one that a complete one replaces",
         {made("a", 90), made("p", 80, true), made("b", 70), made("q", 60, true)},
         {"a", "p"}},
        {"partial ones alone", {made("p", 90, true), made("q", 80, true)}, {}},
        {"one ahead of the clock", {made("a", 90), made("b", 80), made("c", 70), made("d", -1)}, {}},
        {"one ahead among older ones", {made("a", 90), made("b", -400), made("c", 80), made("d", 70)}, {}},
        {"a replacing one dated 1970", {made("a", 9), made("b", 20'000), made("c", 8)}, {}},
        {"several dated 1970", {made("a", 9), made("b", 20'000), made("c", 20'000)}, {}},
        {"after a jump of the clock", {made("a", 400), made("b", 300), made("c", 0)}, {}, 29},
        {"long after one", {made("a", 400), made("b", 300), made("c", 0)}, {"a"}, 31},
        {"one that took 20 days", {made("a", 90), made("b", 32, false, 1)}, {}, 1000, {}, {{1, 12}}},
        {"held", {made("a", 90), made("b", 80), made("c", 70), made("d", 60)}, {"a", "c"}, 1000, {"b"}},
    };
    for (const auto& each : cases) {
        RetentionLimits limits{today, std::chrono::days(30), today - each.steadyDays * day, each.held};
        for (const auto& [sequence, daysAgo] : each.ended)
            limits.firstListed[sequence] = today - daysAgo * day;
        EXPECT_EQ(snapshotsToForget(each.snapshots, limits), each.forgotten) << each.what;
    }
}

TEST(Snapshots, AreInTheOrderOfCreationWhateverTheClockSaid) {
    const std::tuple<const char*, std::vector<Snapshot>, Ids> cases[] = {
        {"by time", {made("b", 1), made("a", 2)}, {"a", "b"}},
        {"by number", {made("a", 1, false, 9), made("b", 5, false, 10)}, {"a", "b"}},
        {"numbered ones last", {made("b", 9, false, 1), made("a", 1)}, {"a", "b"}},
        {"a chain with a clock ahead",
         {made("a", 9), made("b", -5, false, 0, "a"), made("c", 7, false, 0, "b"),
          made("d", 6, false, 0, "c")},
         {"a", "b", "c", "d"}},
        {"a partial one with a clock ahead",
         {made("a", 9), made("p", -5, true, 0, "a"), made("c", 7, false, 0, "a"), made("q", 8, true, 0, "c")},
         {"a", "p", "c", "q"}},
        {"a parent that is forgotten",
         {made("c", 7, false, 0, "b"), made("b", 8, false, 0, "gone")},
         {"b", "c"}},
        {"a circle", {made("a", 9, false, 0, "b"), made("b", 8, false, 0, "a")}, {"a", "b"}},
    };
    for (const auto& [what, snapshots, order] : cases) {
        Ids ids;
        for (const Snapshot& each : inOrderOfCreation(snapshots))
            ids.push_back(each.id);
        EXPECT_EQ(ids, order) << what;
    }
}

SnapshotItem file(int number) {
    return {"/h/" + std::to_string(number), ItemKind::File, 1, {}, {}, 0, 0};
}

std::vector<SnapshotItem> files(int first, int behind) {
    std::vector<SnapshotItem> all;
    for (int number = first; number < behind; ++number)
        all.push_back(file(number));
    return all;
}

TEST(Retention, NoticesThatManyFilesDisappearedAtOnce) {
    const std::tuple<int, int, bool> cases[] = {
        {2000, 200, false}, {2000, 201, true}, {99, 99, false}, {100, 100, true}};
    for (const auto& [before, gone, isNoticed] : cases) {
        const BackupIndex one = indexWith({}, "r", {"one", 1, false}, files(0, before));
        const BackupIndex partial = indexWith(one, "r", {"part", 2, true}, {file(before - 1)});
        const BackupIndex index = indexWith(partial, "r", {"two", 3, false}, files(0, before - gone));
        const auto found = disappearanceAt(index, 1, 3);
        EXPECT_EQ(found.has_value(), isNoticed) << before << ' ' << gone;
        if (!found)
            continue;
        EXPECT_EQ(found->files, static_cast<std::uint64_t>(gone));
        EXPECT_EQ(found->of, static_cast<std::uint64_t>(before));
        EXPECT_EQ(found->snapshots, (std::set<std::string>{"one", "part"}));
        EXPECT_EQ(filesHeldLastBy(index, found->snapshots), found->files);
    }
}

// The contents of a snapshot that was missing for a while, which newer ones do not have.
TEST(BackupIndex, TakesInASnapshotThatIsNotTheNewest) {
    const BackupIndex one = indexWith({}, "r", {"one", 1, false}, files(0, 1));
    const BackupIndex three = indexWith(one, "r", {"three", 3, false}, {file(1)});
    const auto numbered = indexNumbering(three, {{"one", 1, false}, {"two", 2, false}, {"three", 3, false}});
    ASSERT_TRUE(numbered);
    EXPECT_EQ(numbered->find("/h/0")->snapshot, 1U);
    EXPECT_EQ(numbered->find("/h/1")->version, 3U);
    const BackupIndex all = indexWithContents(*numbered, 2, {file(0), file(1), file(2)});
    EXPECT_EQ(all.find("/h/0")->snapshot, 2U);
    EXPECT_EQ(all.find("/h/0")->version, 1U);
    EXPECT_EQ(all.find("/h/1")->snapshot, 3U);
    EXPECT_EQ(all.find("/h/2")->snapshot, 2U);
    const BackupIndex same =
        indexNumbering(one, {{"one", 1, false}, {"same", 2, false}})->withSameContents(1, 2);
    EXPECT_EQ(same.find("/h/0")->snapshot, 2U);
    EXPECT_EQ(same.find("/h/0")->version, 1U);
    EXPECT_FALSE(indexNumbering(three, {{"three", 3, false}, {"one", 1, false}}));
    EXPECT_EQ(indexNumbering(three, {{"three", 3, false}})->find("/h/0"), nullptr);
}

class RetentionRecordTest : public ::testing::Test {
protected:
    RetentionRecord record() {
        return {folder / "record", [this] { return clock; }};
    }
    void pass(std::int64_t seconds) {
        clock.wall += seconds;
        clock.sinceBoot += seconds;
    }
    void reboot(std::int64_t off) { clock = {clock.wall + off + 60, 60, clock.bootId + "'"}; }

    const tests::TemporaryFolder folder;
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
    ClockReading clock{today, 1000, "boot"};
};

TEST_F(RetentionRecordTest, NoticesThatTheClockWasSet) {
    const std::tuple<const char*, std::function<void()>, bool> cases[] = {
        {"months pass", [&] { pass(100 * day); }, true},
        {"a wrong time zone", [&] { clock.wall -= day / 12; }, true},
        {"33 days ahead", [&] { clock.wall += 33 * day; }, false},
        {"1970", [&] { clock.wall = 5; }, false},
        {"every hour a little",
         [&] {
             for (int each = 0; each < 26; ++each) {
                 clock.wall += day / 12;
                 record().noteClock();
             }
         },
         false},
        {"off over a weekend", [&] { reboot(3 * day); }, true},
        {"off for 33 days, or set by them", [&] { reboot(33 * day); }, false},
        {"back while it was off", [&] { reboot(-2 * day); }, false},
        {"a wrong bit in the file",
         [&] {
             std::string bytes = folder.read("record");
             bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
             folder.write("record", bytes);
         },
         false}};
    for (const auto& [what, happens, isSteady] : cases) {
        std::remove((folder / "record").c_str());
        clock = {today, 1000, "boot"};
        record().noteClock();
        pass(40 * day);
        record().noteClock();
        happens();
        const RetentionLimits limits = record().limits(std::chrono::days(30));
        EXPECT_EQ(limits.now, clock.wall) << what;
        EXPECT_EQ(limits.clockSteadySince, isSteady ? today : clock.wall) << what;
    }
}

TEST_F(RetentionRecordTest, PrunesADayAfterForgettingAndOnlyThen) {
    record().noteClock();
    pass(100 * day);
    EXPECT_TRUE(record().isForgettingDue());
    EXPECT_FALSE(record().isPruningDue());
    record().noteForgotten();
    pass(day - 1);
    EXPECT_FALSE(record().isForgettingDue());
    EXPECT_FALSE(record().isPruningDue());
    clock.wall += 300 * day;
    EXPECT_FALSE(record().isPruningDue()) << "the clock was set";
    pass(day);
    EXPECT_TRUE(record().isPruningDue());
    record().notePruned();
    EXPECT_FALSE(record().isPruningDue());
    EXPECT_TRUE(record().isForgettingDue());
}

TEST_F(RetentionRecordTest, HoldsWhatDisappearedUntilItIsGivenUp) {
    using Decision = RetentionRecord::Decision;
    const std::set<std::string> holders{"one"};
    const auto isHeld = [&] { return record().limits(std::chrono::days(30)).held == holders; };
    const BackupIndex gone =
        indexWith(indexWith({}, "r", {"one", 1, false}, files(0, 200)), "r", {"two", 2, false}, {file(0)});
    const BackupIndex back = indexWith(gone, "r", {"three", 3, false}, files(0, 200));
    const auto disappearance = disappearanceAt(gone, 1, 2);
    ASSERT_TRUE(disappearance);
    Disappearance found = *disappearance;
    found.files = 1;
    record().add(found);
    record().add(*disappearance);
    record().update(gone);
    EXPECT_EQ(record().entries().at(0).disappearance.files, disappearance->files);
    EXPECT_TRUE(isHeld());
    {
        RetentionRecord readOnly = record();
        std::filesystem::permissions(folder.path(), std::filesystem::perms(0555));
        const tests::AsNobody nobody(folder);
        EXPECT_NE(readOnly.decide("two", Decision::Forget), "");
        EXPECT_EQ(readOnly.entries().at(0).decision, Decision::None);
        std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all);
    }
    EXPECT_NE(record().decide("three", Decision::Forget), "");
    EXPECT_EQ(record().decide("two", Decision::Keep), "");
    record().add(*disappearance);
    record().update(back);
    EXPECT_TRUE(isHeld()) << "a decision stands";
    EXPECT_EQ(record().decide("two", Decision::Forget), "");
    EXPECT_FALSE(isHeld());
    EXPECT_EQ(record().entries().size(), 1U);
    record().update(BackupIndex());
    EXPECT_TRUE(record().entries().empty());
    record().add(*disappearance);
    record().update(back);
    EXPECT_FALSE(isHeld()) << "the files are there again";
}

TEST_F(RetentionRecordTest, KeepsWhatItKnowsOfEachRepository) {
    record().noteMade(1, true); // the only repository so far, whose id becomes known
    RetentionRecord turns = record();
    turns.setRepository("r");
    turns.setRepository("s");
    turns.noteMade(2, true);
    turns.update(indexWith({}, "s", {"four", 4, false, 4}, files(0, 1)));
    turns.setRepository("r");
    EXPECT_TRUE(turns.isIncomplete(1));
    EXPECT_FALSE(turns.isIncomplete(2));
    pass(day);
    RetentionRecord later = record();
    later.setRepository("s");
    EXPECT_EQ(later.limits(std::chrono::days(30)).firstListed,
              (decltype(RetentionLimits::firstListed){{4, clock.wall - day}}));
}

// A process that has ended, which an earlier daemon has started on this machine.
class ResticProcessesTest : public testing::Test {
protected:
    using Holder = ResticProcesses::Holder;
    void SetUp() override {
        const auto onStart = [&](pid_t id) {
            dead = id;
            ResticProcesses(folder / "processes").noteStarted(id);
        };
        ASSERT_TRUE(runChild({.arguments = {"true"}}, {.onStart = onStart}, StopSignal()).succeeded());
    }

    const tests::TemporaryFolder folder;
    const std::string here = machineHostName();
    const std::int64_t now = readMachineClock().wall;
    const std::int64_t longAgo = now - 3600;
    const ResticProcesses::SteadyClock::time_point start = ResticProcesses::SteadyClock::now();
    pid_t dead = 0;
};

TEST_F(ResticProcessesTest, KnowWhoseALockIs) {
    // With the holder at once and after half an hour.
    const std::tuple<const char*, RepositoryLock, Holder, Holder> cases[] = {
        {"ours and dead", {"a", here, dead, now}, Holder::Own, Holder::Own},
        {"its number on another host", {"b", "other", dead, now}, Holder::Living, Holder::Living},
        {"its number, before it began", {"c", here, dead, longAgo}, Holder::Living, Holder::Abandoned},
        {"not seen by anybody here", {"d", here, 99999999, now}, Holder::Living, Holder::Living},
        {"the same, not renewed", {"e", here, 99999999, longAgo}, Holder::Living, Holder::Abandoned},
        {"of another host, not renewed", {"f", "other", 1, longAgo}, Holder::Living, Holder::Abandoned},
        {"of a living process that hangs", {"g", here, 1, now - 1801}, Holder::Living, Holder::Living}};
    ResticProcesses processes(folder / "processes", ownPidNamespace());
    for (const auto& [what, lock, atOnce, later] : cases) {
        EXPECT_EQ(processes.holderOf(lock, {lock}, start), atOnce) << what;
        EXPECT_EQ(processes.holderOf(lock, {lock}, start + 29min), atOnce) << what;
        EXPECT_EQ(processes.holderOf(lock, {lock}, start + 30min), later) << what;
    }
    RepositoryLock renewed{.id = "h", .hostName = "other", .pid = 1, .time = longAgo};
    EXPECT_EQ(processes.holderOf(renewed, {renewed}, start), Holder::Living);
    renewed.id = "i";
    EXPECT_EQ(processes.holderOf(renewed, {renewed}, start + 31min), Holder::Living);
}

TEST_F(ResticProcessesTest, TakeNoNumberThatAnotherProcessMayHaveForTheirOwn) {
    const auto holderOf = [&](const char* file, std::uint64_t pidNamespace,
                              const std::vector<RepositoryLock>& locks) {
        return ResticProcesses(folder / file, pidNamespace).holderOf(locks[0], locks, start);
    };
    folder.write("restarted", formatText("of-another-boot %llu %d 12345 %lld 0 %@\n", ownPidNamespace(),
                                         ::getpid(), static_cast<long long>(longAgo), here));
    EXPECT_EQ(holderOf("restarted", ownPidNamespace(), {{"l", here, ::getpid(), now}}), Holder::Living);
    const RepositoryLock one{.id = "j", .hostName = here, .pid = dead, .time = now};
    EXPECT_EQ(holderOf("processes", ownPidNamespace(), {one, {"k", here, dead, now}}), Holder::Living)
        << "one may be of a container";
    EXPECT_EQ(holderOf("processes", ownPidNamespace() + 1, {one}), Holder::Living) << "in a container";
    for (const bool isLockGone : {false, true}) {
        ResticProcesses processes(folder / std::to_string(isLockGone), ownPidNamespace());
        processes.noteStarted(dead);
        processes.noteEnded(dead, isLockGone);
        EXPECT_EQ(processes.holderOf(one, {one}, start), isLockGone ? Holder::Living : Holder::Own);
    }
}

} // namespace
} // namespace kelvane
