#include "Common/StandingAlert.h"
#include "Common/StateKeys.h"
#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "LocalDaemon/Panes/AlertActions.h"
#include "LocalDaemon/Panes/CallbackQueue.h"
#include "LocalDaemon/Panes/DaemonTarget.h"
#include "LocalDaemon/Panes/RuleCommands.h"
#include "LocalDaemon/State/DaemonState.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

struct Told : DaemonObserver {
    void setStateHandler(bool) override {}
    void setAlertHandler(bool) override {}
    void stateChanged(std::uint32_t code) override { states.push_back(code); }
    void alertRaised(const std::string&) override {}
    void restoreProgressed(const std::vector<std::uint32_t>&) override {}
    void restoreEnded(const std::string&) override {}
    void filesChanged(const std::vector<std::string>&) override {}
    void foldersChanged(const std::vector<std::string>&) override {}
    std::vector<std::uint32_t> states;
};

class State : public ::testing::Test {
protected:
    State() { state.addPane(told); }
    void report(std::uint64_t count, std::uint64_t bytes, bool isScanning = false) {
        state.takeReport({.totals = {count, bytes},
                          .isScanning = isScanning,
                          .changedFolders = {},
                          .pending = {count, bytes},
                          .index = state.index()});
    }

    void change() {
        state.takeReport(
            {.totals = {1, 1}, .changedFolders = {"/a"}, .pending = {1, 1}, .index = state.index()});
    }

    const std::shared_ptr<Told> told = std::make_shared<Told>();
    std::chrono::system_clock::time_point time{std::chrono::sys_days{std::chrono::year{2001} / 1 / 1}};
    DaemonState state{
        Configuration{.userEmail = "",
                      .computerNumber = 1,
                      .quotaMB = 2,
                      .home = "/home",
                      .policy = {},
                      .repository = {.location = "/backup", .passwordFile = "", .cacheFolder = ""}},
        Settings(), std::make_shared<BackupIndex>(),
        [](const Settings&, std::uint64_t) { return std::string(); }, [this] { return time; }};
};

TEST_F(State, CountsWhatTheScanHasFoundAgainstTheQuota) {
    EXPECT_EQ(state.serviceState(), 7U);
    EXPECT_TRUE(state.stateDictionary()["pendingFileCount"].isAbsent()); // not known yet
    report(5'000'000'000, 1U << 20U, true);
    EXPECT_EQ(state.stateDictionary()["pendingFileCount"], 0xFFFFFFFFU); // more than the type can represent
    EXPECT_EQ(state.stateDictionary()["pendingFileSize"], 1U << 20U);
    EXPECT_EQ(state.stateDictionary()["isBackupNeeded"].kind(), Value::Kind::Bool);
    report(0, 0);
    report(1, 2U << 20U);
    report(1, (2U << 20U) + 1);
    EXPECT_TRUE(state.stateDictionary()["isOverQuota"].boolValue());
    state.setOverQuotaForTesting(false);
    state.setOverQuotaForTesting(std::nullopt);
    EXPECT_EQ(told->states, (std::vector<std::uint32_t>{8, 5, 17, 5, 17}));
    EXPECT_FALSE(state.alerts()->standing("watch_limit_reached"));
    state.takeReport({{}, false, true, {}, {}, 0, state.index()});
    EXPECT_TRUE(state.alerts()->standing("watch_limit_reached"));
}

// A single text that cannot be encoded would leave panes without a state.
TEST_F(State, SaysThatTheBackupIsDamagedInTextsThatCanBeEncoded) {
    report(0, 0);
    state.setDamage(true, 0);
    state.alerts()->raise({"damage", "error", "Damaged", "name \xFF"});
    const Value said = state.stateDictionary();
    EXPECT_EQ(said["serviceState"], 23U);
    EXPECT_EQ(said["statusString"], "Something in the backup is damaged.");
    EXPECT_TRUE(writeBinaryPropertyList(said).succeeded());
}

TEST_F(State, SaysTheFirstReasonThatHoldsAndKeepsOneThatIsSetUntilItsOwnIsAnother) {
    report(1, 1);
    state.overrideServiceState(24);
    report(2, 2);
    state.changeSettings([](Settings& settings) { settings.recoverMode = true; });
    state.setPausedMinutes(1);
    state.changeSettings([](Settings& settings) { settings.enabled = false; });
    state.changeSettings([](Settings& settings) { settings = Settings(); });
    state.overrideServiceState(20);
    state.overrideServiceState(0);
    EXPECT_EQ(told->states, (std::vector<std::uint32_t>{5, 24, 25, 13, 12, 5, 20, 5}));
    state.overrideServiceState(15); // panes interpret these two as the progress of a restore
    state.overrideServiceState(16);
    EXPECT_EQ(state.serviceState(), 16U);
    EXPECT_EQ(told->states.size(), 8U);
    state.overrideServiceState(0);
    state.setActivity({false, false, ServiceState::NoServer, {}, {}});
    state.backupOrders().add(); // which checks again
    EXPECT_EQ(state.serviceState(), 5U);
    state.backupOrders().noteTried(1);
    EXPECT_EQ(state.serviceState(), 19U);
}

TEST_F(State, KeepsTheSelectionOfBothModesAndSaysWhenItIsEmpty) {
    const auto isIn = [&] { return verdictFor(*state.rules(), "/home/a").isIn(); };
    setAutomaticMode(state, false);
    EXPECT_TRUE(isIn());
    EXPECT_FALSE(state.alerts()->standing("nothing_selected"));
    state.changeSettings([](Settings& all) { all.paths.mark("/home", PathRules::Mark::Removed); });
    for (const bool isAutomatic : {true, false}) {
        setAutomaticMode(state, isAutomatic);
        EXPECT_EQ(isIn(), isAutomatic);
        EXPECT_EQ(state.alerts()->standing("nothing_selected").has_value(), !isAutomatic);
    }
    EXPECT_EQ(state.stateDictionary()["serviceState"], 23U);
    EXPECT_EQ(state.stateDictionary()["statusString"], "Nothing is selected for backup.");
}

TEST_F(State, TellsTheScheduleAsFarAsItIsKnown) {
    const auto keysOfSchedule = [&] {
        std::string text;
        const Value said = state.stateDictionary();
        for (const auto& [key, value] : said.dictionary())
            for (const std::string_view name :
                 {statekey::lastBackupDate, statekey::nextBackupDate, statekey::pausedUntil,
                  statekey::waitingFor, statekey::bytesPerSecond, statekey::secondsLeft})
                text += key == name ? key + ' ' + value.description() + '\n' : "";
        return text;
    };
    report(1, 1);
    EXPECT_EQ(state.stateDictionary()["destination"], "/backup");
    EXPECT_EQ(keysOfSchedule(), "");
    state.setPlanSource(
        [&] { return PlannedBackup{.date = time + std::chrono::minutes(15), .waitingFor = "Not yet."}; });
    state.setIndex(std::make_shared<BackupIndex>(
                       indexWith({}, "x", {.id = std::string(64, 'a'), .time = 0, .isPartial = true}, {})),
                   {});
    const std::string last = "lastBackupDate 1970-01-01T00:00:00Z\n";
    EXPECT_EQ(keysOfSchedule(), last + "nextBackupDate 2001-01-01T00:15:00Z\nwaitingFor Not yet.\n");
    state.setPausedMinutes(2);
    EXPECT_EQ(keysOfSchedule(), last + "pausedUntil 2001-01-01T00:02:00Z\nwaitingFor Backup is paused.\n");
    time += std::chrono::minutes(2);
    BackupActivity running;
    running.isRunning = true;
    running.bytesPerSecond = 7;
    running.secondsLeft = 0;
    state.setActivity(running);
    EXPECT_EQ(keysOfSchedule(), last + "bytesPerSecond 7\nsecondsLeft 0\n");
}

// Otherwise a snapshot every quarter of an hour would contain nothing new.
TEST_F(State, WhatCannotBeReadCallsForNoBackupUntilSomethingChanges) {
    change();
    const std::uint64_t atItsBeginning = state.backupNeed().changes;
    change();
    state.noteUnread(atItsBeginning);
    EXPECT_TRUE(state.backupNeed().isPending);
    state.noteUnread(state.backupNeed().changes);
    report(1, 1);
    EXPECT_FALSE(state.backupNeed().isPending);
    change();
    EXPECT_FALSE(state.stateDictionary()["isBackupNeeded"].boolValue()); // the requested backup is done
    EXPECT_TRUE(state.stateDictionary()["hasUnreadFiles"].boolValue());
    state.noteUnread(state.backupNeed().changes);
    EXPECT_EQ(state.serviceState(), 8U);
    state.changeSettings([](Settings& settings) { settings.paths.exclusions.insert("/b"); });
    EXPECT_TRUE(state.backupNeed().isPending);
    // A comparison with another index has no effect either.
    state.setIndex(std::make_shared<BackupIndex>(), {});
    EXPECT_FALSE(state.backupNeed().isKnown);
    EXPECT_EQ(state.serviceState(), 7U);
}

TEST_F(State, TellsEveryPaneOfARestoreAlsoOneThatHasAskedForNothing) {
    using Codes = std::vector<std::uint32_t>;
    const auto pane = std::make_shared<CallbackQueue>();
    state.addPane(pane);
    state.changeSettings([](Settings& settings) { settings.enabled = false; });
    EXPECT_FALSE(state.backupNeed().mayRead);
    state.setRestoreProgress({3, "a", 5, 2});
    EXPECT_TRUE(state.backupNeed().mayRead); // the contents of the backup are not known yet
    EXPECT_EQ(pane->take()->states, (Codes{48, 15, 16, 35}));
    EXPECT_EQ(state.stateDictionary()["currentRestoreJob"], 3U);
    DaemonTarget::World world;
    world.state = std::shared_ptr<DaemonState>(std::shared_ptr<void>(), &state);
    DaemonTarget target(std::make_shared<DaemonTarget::World>(world), nullptr);
    for (const auto& [code, text, size, count] : {std::tuple(15U, Value("a"), 0U, 0),
                                                  {16U, "Account disabled", 5U, 0},
                                                  {35U, "", 0U, 2},
                                                  {24U, "Upgrade available", 0U, 0}}) {
        EXPECT_EQ(target.stringForState(code), text) << code;
        EXPECT_EQ(target.longlongForState(code), size) << code;
        EXPECT_EQ(target.longForState(code), count) << code;
    }
    state.refuseRestore("It is too late.");
    EXPECT_EQ(pane->take()->states, Codes{35});
    EXPECT_EQ(state.alerts()->standing("restore_refused")->body, "It is too late.");
    const auto late = std::make_shared<CallbackQueue>();
    state.addPane(late);
    EXPECT_EQ(late->take()->states, (Codes{15, 16, 35}));
    state.addStateHandler(*late);
    EXPECT_EQ(late->take()->states, (Codes{15, 16, 35}));

    state.setRestoreProgress({});
    state.endRestore({{"/a|b", "why"}});
    pane->setStateHandler(false); // like a pane that needs no more calls
    pane->setAlertHandler(false);
    const auto end = pane->take();
    EXPECT_EQ(end->states, Codes{35});
    EXPECT_EQ(end->alerts, std::vector<std::string>{"restore_finished|information||||"});
    pane->setAlertHandler(true);
    state.alerts()->addHandler(*pane);
    EXPECT_NE(pane->take()->alerts.at(0).find("/a&#124b: why"), std::string::npos);

    // If the end of one were reported after the beginning of the next, it would end that one.
    state.setRestoreProgress({4, "a", 5, 2});
    state.setRestoreProgress({});
    state.endRestore({});
    state.setRestoreProgress({5, "a", 5, 2});
    const auto next = pane->take();
    EXPECT_EQ(next->states, (Codes{48, 15, 16, 35}));
    EXPECT_TRUE(next->alerts.empty());
}

TEST(CallbackQueue, KeepsWhatASlowPaneIsToBeToldSmall) {
    CallbackQueue queue;
    queue.stateChanged(1); // not requested
    queue.setStateHandler(true);
    for (const std::uint32_t state : {5U, 7U, 5U})
        queue.stateChanged(state);
    queue.filesChanged({"/", "/b", "/"});
    auto batch = queue.take();
    EXPECT_EQ(batch->states, (std::vector<std::uint32_t>{7, 5}));
    EXPECT_EQ(batch->files, (std::vector<std::string>{"/", "/b"}));
    for (std::uint32_t number = 0; number < 5000; ++number) {
        queue.stateChanged(number);
        queue.filesChanged({"/" + std::to_string(number)});
    }
    batch = queue.take();
    EXPECT_EQ(batch->states.back(), 4999U);
    EXPECT_LT(batch->states.size(), 100U);
    EXPECT_EQ(batch->files, std::vector<std::string>{"/"});

    queue.setAlertHandler(true);
    for (int number = 0; number < 50; ++number) {
        queue.foldersChanged({"/" + std::to_string(number) + std::string(4000, 'x')});
        queue.alertRaised(std::to_string(number) + std::string(40'000, 'x'));
    }
    batch = queue.take();
    EXPECT_EQ(batch->folders, std::vector<std::string>{"/"}) << "few, but of many bytes";
    ASSERT_EQ(batch->alerts.size(), 1U);
    EXPECT_TRUE(batch->alerts[0].starts_with("49x")) << "the newest";
    EXPECT_EQ(batch->lostAlerts, 49U);
}

TEST_F(State, ListsStandingAlertsWorstFirstSinceTheyWereRaised) {
    const auto ids = [&] {
        std::string text;
        for (const StandingAlert& alert : standingAlertsFrom(state.stateDictionary()["alerts"]))
            text += alert.id + ' ';
        return text;
    };
    state.alerts()->raise({"low", "information", "", ""});
    state.alerts()->raise({"middle", "warning", "", "first"});
    state.setPausedMinutes(60);
    time -= std::chrono::hours(1); // the clock was ahead when the pause was set
    EXPECT_EQ(state.pausedMinutes(), 0U);
    time += std::chrono::hours(1) + std::chrono::seconds(60);
    EXPECT_EQ(state.pausedMinutes(), 59U);
    state.alerts()->raise({"late", "warning", "", ""});
    state.alerts()->raise({"high", "error", "", "", {"keep:a:b", "odd:", "dismiss:"}});
    state.alerts()->raise({"middle", "warning", "", "other words"});
    EXPECT_EQ(ids(), "high late middle low ");
    const StandingAlert middle = standingAlertsFrom(state.stateDictionary()["alerts"])[2];
    EXPECT_EQ(middle.text, "other words");
    EXPECT_EQ(middle.since, Date{0});

    AlertActions actions(state.alerts());
    std::string kept;
    actions.add("keep", [&](const std::string& argument) {
        kept = argument + (state.alerts()->standing("high") ? " while it stands" : "");
        return std::string();
    });
    EXPECT_EQ(actions.perform("keep:a:b", "high"), "");
    EXPECT_EQ(kept, "a:b while it stands");
    for (const auto& [action, id] :
         {std::pair("keep:c", "high"), {"odd:", "high"}, {"dismiss:", "low"}, {"dismiss:", "unknown"}})
        EXPECT_NE(actions.perform(action, id), "") << action << id;
    EXPECT_EQ(actions.perform("dismiss:", "high"), "");
    EXPECT_EQ(ids(), "late middle low ");
}

TEST(AlertString, EscapesItsSeparator) {
    EXPECT_EQ(alertString({"kind", "error", "a|b", "c"}), "kind|error|||a&#124b|c");
}

} // namespace
} // namespace kelvane
