#include "Tests/Backup/BackupTabTest.h"

#include "PreferencePane/Backup/ChoosePanel.h"

namespace kelvane::tests {
namespace {

using ViewsTest = BackupTabTest;

TEST_F(ViewsTest, FollowTheLinkAndTheMode) {
    EXPECT_EQ(shownView(), "disabledBackupView");
    begin(true);
    EXPECT_EQ(shownView(), "autoBackupView");
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
    setState("isQuotaLimited", false);
    EXPECT_TRUE(control("manualAutoButton").isVisibleTo(pane.mainView()));
    EXPECT_EQ(daemon.callCount("setAutomaticMode:"), 0);
}

TEST_F(ViewsTest, SayWhatCanBeDone) {
    const std::vector<const char*> controls{"addSegment", "autoManualButton", "manualToggleButton",
                                            "manualAutoButton"};
    EXPECT_EQ(enabled(controls), "addSegment autoManualButton");
    begin(true);
    EXPECT_EQ(enabled(controls), "addSegment autoManualButton manualToggleButton manualAutoButton");
    pane.isRecovering = true;
    changed();
    EXPECT_EQ(enabled(controls), "");
    for (const char* const line : {"currentAutoBackupViewContextMsg", "currentManualBackupViewContextMsg"})
        EXPECT_TRUE(text(line).starts_with("You can't make changes")) << line;
}

TEST_F(ViewsTest, SurviveALinkThatIsLostInTheMiddle) {
    breakLinkAt("excludedFiles:");
    ASSERT_TRUE(daemon.start());
    pane.state->onBegin();
    EXPECT_TRUE(loop->runUntil([this] { return !pane.connected(); }));
    EXPECT_EQ(shownView(), "disabledBackupView");
    EXPECT_FALSE(control("manualToggleButton").isEnabled());
}

} // namespace
} // namespace kelvane::tests
