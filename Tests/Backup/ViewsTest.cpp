#include "Tests/Backup/BackupTabTest.h"

#include "PreferencePane/Backup/ChoosePanel.h"

namespace kelvane::tests {
namespace {

using ViewsTest = BackupTabTest;

TEST_F(ViewsTest, FollowTheLinkAndTheMode) {
    EXPECT_EQ(shownView(), "disabledBackupView");
    begin(true);
    EXPECT_EQ(shownView(), "autoBackupView");
    EXPECT_EQ(enabled({"removeSegment", "infoSegment"}), "") << "nothing is selected";
    daemon.changeWorld(
        [](DaemonWorld& world) { world.values.mutableDictionary().set("automaticMode", false); });
    setState("serviceState", 6U);
    EXPECT_EQ(shownView(), "manualBackupView");
    click("manualAutoButton");
    EXPECT_EQ(shownView(), "autoBackupView");
    EXPECT_TRUE(daemon.waitForCalls("setAutomaticMode:"));
    EXPECT_TRUE(daemon.world().values["automaticMode"].boolValue());

    click("addSegment");
    EXPECT_NE(pane.mainView()->findChild<ChoosePanel*>(), nullptr);
    daemon.stop();
    EXPECT_TRUE(loop->runUntil([this] { return !pane.connected(); }));
    EXPECT_EQ(shownView(), "disabledBackupView");
    EXPECT_FALSE(pane.mainView()->findChild<ChoosePanel*>()->isVisible());
    // Nobody can say now which mode it is.
    pane.post(KelvanePrefPaneDaemonStateChangedNotification);
    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(shownView(), "autoBackupView");
}

TEST_F(ViewsTest, StayInManualModeForAnAccountWithAQuota) {
    daemon.setState("isQuotaLimited", true);
    begin(false);
    EXPECT_FALSE(control("manualAutoButton").isVisibleTo(pane.mainView()));
    control<QAbstractButton>("manualAutoButton").click();
    EXPECT_EQ(shownView(), "manualBackupView");
    EXPECT_EQ(daemon.callCount("setAutomaticMode:"), 0);
    // Into it the way is open.
    daemon.changeWorld(
        [](DaemonWorld& world) { world.values.mutableDictionary().set("automaticMode", true); });
    setState("serviceState", 7U);
    EXPECT_EQ(shownView(), "autoBackupView");
    click("autoManualButton");
    EXPECT_EQ(shownView(), "manualBackupView");
    EXPECT_TRUE(daemon.waitForCalls("setAutomaticMode:"));
    EXPECT_FALSE(daemon.world().values["automaticMode"].boolValue());
    setState("isQuotaLimited", false);
    EXPECT_TRUE(control("manualAutoButton").isVisibleTo(pane.mainView()));
}

TEST_F(ViewsTest, SayWhatCanBeDone) {
    struct Case {
        bool isConnected, isAuthorized, isRecovering, isEnabled;
        const char* controls;
        const char* line; // begins so; null for what is said as a rule
    };
    const Case cases[] = {
        {false, true, true, true, "", "You can't make"},
        {false, true, false, true, "addSegment autoManualButton", nullptr},
        {true, true, false, true, "addSegment autoManualButton manualToggleButton manualAutoButton", nullptr},
        {true, true, false, false, "addSegment autoManualButton", nullptr},
        {true, true, true, true, "", "You can't make"},
        {true, false, false, true, "", "You can't make"}, // as it was
    };
    for (const Case& example : cases) {
        SCOPED_TRACE(&example - cases);
        if (example.isConnected && !pane.connected())
            begin(true);
        pane.isAuthorized = example.isAuthorized;
        pane.isRecovering = example.isRecovering;
        tab->enableTabItems(example.isEnabled);
        EXPECT_EQ(enabled({"addSegment", "autoManualButton", "manualToggleButton", "manualAutoButton"}),
                  example.controls);
        EXPECT_EQ(pane.flags().manualToggleButtonEnable, control("manualToggleButton").isEnabled());
        const std::pair<const char*, const char*> lines[] = {
            {"currentAutoBackupViewContextMsg", "To exclude"},
            {"currentManualBackupViewContextMsg", "To include"}};
        for (const auto& [line, usual] : lines)
            EXPECT_TRUE(text(line).starts_with(example.line ? example.line : usual)) << line;
    }
}

TEST_F(ViewsTest, SurviveALinkThatIsLostInTheMiddle) {
    daemon.breakLinkAt("excludedFiles:");
    ASSERT_TRUE(daemon.start());
    pane.state->onBegin();
    EXPECT_TRUE(loop->runUntil([this] { return !pane.connected(); }));
    EXPECT_EQ(shownView(), "disabledBackupView");
    EXPECT_FALSE(control("manualToggleButton").isEnabled());
}

} // namespace
} // namespace kelvane::tests
