#include "Tests/Pane/PaneControllerTest.h"
#include "PreferencePane/RestoreAlert.h"

namespace kelvane::tests {
namespace {

TEST_F(PaneControllerTest, WakesSelectsAndUnselectsItsPartsInOrder) {
    begin();
    EXPECT_EQ(taken(), (Calls{"restore on", "backup on", "status awakes", "backup awakes", "restore awakes",
                              "help awakes"}));
    EXPECT_EQ(pane->tabNames(), (Calls{"Status", "Backup", "Restore", "Help"}));
    EXPECT_FALSE(pane->backupState());
    for (int times = 0; times < 2; ++times) {
        EXPECT_TRUE(pane->selectTab("help"));
        select();
        EXPECT_EQ(shownTab(), "Status");
        EXPECT_TRUE(pane->connected());
        EXPECT_EQ(taken(), Calls{"status selected"});
        const auto state = pane->backupState();
        pane->didSelect();
        EXPECT_EQ(pane->backupState(), state) << "what is there goes on";
        taken();
        pane->willUnselect();
        EXPECT_EQ(taken(), (Calls{"restore on", "backup on", "info closes", "status writes"}));
        EXPECT_FALSE(pane->backupState());
        daemon.stop();
    }
}

TEST_F(PaneControllerTest, AppliesAConfigurationOnceUnlessForcedAndNeverWhenFrozen) {
    begin();
    taken();
    pane->changeTabConfiguration(1, false);
    EXPECT_EQ(taken(), Calls{});
    pane->changeTabConfiguration(0, true);
    EXPECT_EQ(taken(), (Calls{"restore on", "backup on"}));
    const Calls normal{"Status", "Backup", "Restore", "Help"};
    const Calls message{"Message", "Help"};
    EXPECT_TRUE(pane->selectTab("Help"));
    pane->changeTabConfiguration(4, false);
    EXPECT_EQ(taken(), (Calls{"restore off", "backup off"}));
    EXPECT_EQ(pane->tabNames(), message);
    EXPECT_EQ(shownTab(), "Message");
    pane->changeTabConfiguration(7, false);
    pane->changeTabConfiguration(0, true);
    EXPECT_EQ(pane->tabNames(), message) << "a command of no meaning is only stored";
    pane->changeTabConfiguration(1, false);
    EXPECT_EQ(pane->tabNames(), normal);

    pane->changeTabConfiguration(4, false);
    pane->setBadConfigurationFlag();
    pane->changeTabConfiguration(1, true);
    EXPECT_EQ(pane->tabNames(), message) << "until the pane is hidden";
    pane->willUnselect();
    EXPECT_EQ(pane->tabNames(), normal);
    pane->changeTabConfiguration(4, false);
    EXPECT_EQ(pane->tabNames(), message) << "and is not frozen any more";
}

TEST_F(PaneControllerTest, TellsOfTheLinkThenOfTheState) {
    begin();
    Calls notices;
    std::vector<NotificationCenter::Observer> observers;
    for (const auto name :
         {KelvanePrefPaneReadyChangedNotification, KelvanePrefPaneDaemonStateChangedNotification})
        observers.push_back(
            notifications->observe(std::string(name), pane.get(), [&](const Notification& notice) {
                notices.push_back(std::string(notice.name) + (pane->connected() ? " +" : " -"));
            }));
    const std::string ready(KelvanePrefPaneReadyChangedNotification);
    const std::string state(KelvanePrefPaneDaemonStateChangedNotification);
    select();
    EXPECT_EQ(notices, (Calls{ready + " +", state + " +", state + " +"})) << "the link, and the first poll";
    notices.clear();
    daemon.setState("serviceState", 8U);
    host->loop->advance(2s);
    EXPECT_EQ(notices, Calls{state + " +"});
    notices.clear();
    taken();
    daemon.stop();
    ASSERT_TRUE(host->loop->runUntil([&] { return !pane->connected(); }));
    EXPECT_EQ(notices.front(), ready + " -");
    EXPECT_EQ(taken(), (Calls{"restore on", "backup on"}));
}

// Each link is a new one to the daemon: who was told of progress before is not told any more.
TEST_F(PaneControllerTest, ShowsTheProgressOfARestoreOnEachLinkWhileOneRuns) {
    begin();
    const auto isShown = [this] { return restore->progress->isVisibleTo(pane->mainView()); };
    for (const auto& [job, status, isRunning, isHiddenAfter] :
         std::vector<std::tuple<unsigned, unsigned, bool, bool>>{{0U, 51U, false, false},
                                                                 {7U, 51U, true, false},
                                                                 {7U, 52U, true, false},
                                                                 {7U, 50U, false, false},
                                                                 {7U, 51U, true, true},
                                                                 {0U, 51U, false, false}}) {
        SCOPED_TRACE(std::to_string(job) + ' ' + std::to_string(status));
        daemon.answer("getCurrentRestoreJob", job);
        daemon.answer("getRestoreJobStatus:", status);
        daemon.forgetCalls();
        if (pane->backupState()) {
            ASSERT_TRUE(daemon.start());
            host->loop->advance(1s);
        } else {
            select();
        }
        ASSERT_TRUE(pane->connected());
        EXPECT_EQ(isShown(), isRunning);
        pane->backupState()->updateDaemonState(); // once that is answered it has taken what came before
        for (const char* const handler : {"setStateHandler", "setAlertHandler"})
            EXPECT_EQ(daemon.callCount(handler), isRunning ? 1U : 0U) << handler;
        EXPECT_EQ(daemon.callCount("endStateHandler"), 0U);
        if (isHiddenAfter)
            pane->willUnselect();
        EXPECT_EQ(isShown(), isRunning && !isHiddenAfter);
        daemon.stop();
        ASSERT_TRUE(host->loop->runUntil([&] { return !pane->connected(); }));
        EXPECT_EQ(isShown(), isRunning && !isHiddenAfter) << "the restore may go on without the link";
    }
}

TEST_F(PaneControllerTest, PassesTheDaemonsCallsOn) {
    daemon.answer("stringForState:", "a.txt");
    daemon.answer("longlongForState:", std::uint64_t{5} << 32U);
    daemon.answer("longForState:", 3);
    begin();
    select();
    host->loop->runPosted();
    taken();
    const std::string root = "/Volumes/" + pane->fileServices().fileSystem().volumes()->bootVolume().name;
    daemon.callPanes("filesChanged:", {Value(Array{root, "/Volumes/Other/b"})});
    daemon.callPanes("folderChanged:", {root});
    daemon.callPanes("fileChanged:", {"/a"});
    daemon.callPanes("foldersChanged:", {Value(Array{"/b"})});
    daemon.callPanes("statesChanged:", {Value(Array{15U, 16U, 35U, 99U, 48U, 48U})});
    ASSERT_TRUE(host->loop->runUntil([&] { return daemon.callCount("setAlertHandler") == 1; }));
    EXPECT_EQ(taken(),
              (Calls{"backup file /", "restore file /", "backup file /Volumes/Other/b",
                     "restore file /Volumes/Other/b", "backup folder /", "backup file /a", "restore file /a",
                     "backup folder /b", "name a.txt", "size 21474836480", "pending 3"}));
    QWidget* const view = pane->mainView();
    EXPECT_TRUE(restore->progress->isVisibleTo(view));
    EXPECT_EQ(daemon.callCount("setStateHandler"), 1U);
    daemon.callPanes("setAlertStrings:",
                     {Value(Array{"restore_finished|||", "restore_finished||||failed", "x||||"})});
    daemon.callPanes("stateChanged:", {15U});
    ASSERT_TRUE(host->loop->runUntil([&] { return !calls.empty(); })) << "by then the alerts have been read";
    EXPECT_TRUE(restore->progress->isVisibleTo(view));
    daemon.callPanes("setAlertString:", {"restore_finished||||"});
    ASSERT_TRUE(host->loop->runUntil([&] { return daemon.callCount("endAlertHandler") == 1; }));
    EXPECT_FALSE(restore->progress->isVisibleTo(view));
}

TEST_F(PaneControllerTest, IsLockedUntilTheAuthorityAnswers) {
    for (const bool isGranted : {true, false}) {
        begin(isGranted);
        EXPECT_FALSE(pane->prefPaneAccessAuthorized());
        pane->mainViewDidLoad();
        EXPECT_FALSE(pane->prefPaneAccessAuthorized());
        taken();
        host->loop->runPosted();
        EXPECT_EQ(pane->prefPaneAccessAuthorized(), isGranted);
        EXPECT_EQ(taken(), (Calls{"restore on", "backup on", "status refreshes"}));
        pane.reset();
    }
}

TEST(RestoreAlert, EndsTheProgressOnlyWhenItIsWholeAndSaysNothingMore) {
    const std::pair<const char*, bool> cases[] = {
        {"restore_finished||||", true},     {"restore_finished|a|b|c||more", true},
        {"restore_finished||||why", false}, {"restore_finished|||", false},
        {"restore_finished", false},        {"", false},
        {"restore_finished2||||", false},   {"||||", false},
    };
    for (const auto& [alert, ends] : cases)
        EXPECT_EQ(endsRestoreProgress(alert), ends) << alert;
}

} // namespace
} // namespace kelvane::tests
