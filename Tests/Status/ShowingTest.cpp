#include "PreferencePane/Services/ActivityBar.h"
#include "Support/Preferences/DefaultsDB.h"
#include "Tests/Status/StatusTabTest.h"

#include <QCheckBox>

namespace kelvane::tests {

TEST_F(StatusTabTest, ShowsEachModeInPopUpSentenceAndControls) {
    const std::tuple<std::function<void()>, int, std::string, const char*> steps[] = {
        {[] {}, 0, "EPRD", "Kelvane is actively monitoring"},
        {[this] { setState("recoverMode", true); }, 2, "EpRd", "Kelvane will not make any changes"},
        {[this] {
             daemon.answer("pausedMinutes", 61U); // takes precedence over recover mode
             setState("paused", true);
         },
         1, "EPrd", "Kelvane is paused. Your backup will automatically resume in 2 hours."},
        {[this] {
             daemon.answerAsUsual("pausedMinutes");
             setState("paused", false);
         },
         2, "EpRd", "Kelvane will not make any changes"},
        {[this] { loseDaemon(); }, 3, "EprD", "While Kelvane is disabled, no files"},
    };
    connect();
    showTab();
    for (const auto& [enter, index, letters, sentence] : steps) {
        pane.flags().manualToggleButtonEnable = true;
        enter();
        const bool isDisabled = index == 3;
        EXPECT_EQ(modes().currentIndex(), index);
        EXPECT_EQ(items(), letters);
        EXPECT_TRUE(text("daemonModeField").starts_with(sentence)) << text("daemonModeField");
        EXPECT_EQ(control("backupProgress").isVisible(), index == 0);
        EXPECT_EQ(control("uninstallButton").isVisible(), isDisabled);
        EXPECT_EQ(pane.flags().manualToggleButtonEnable, !isDisabled);
        EXPECT_EQ(pane.calls.back(), isDisabled ? "enableBackupTabItems 0" : "enableBackupTabItems 1");
        EXPECT_EQ(tab->inRecoverMode(), index == 2);
        pane.isAuthorized = false;
        tab->refreshStatusModePopup();
        EXPECT_EQ(items() + std::to_string(modes().currentIndex()), "eprd" + std::to_string(index));
        pane.isAuthorized = true;
    }
}

TEST_F(StatusTabTest, ShowsWhatTheDaemonSaysAsItChanges) {
    showTab();
    connect();
    const auto& bar = control<ActivityBar>("backupProgress");
    EXPECT_EQ(text("backupField"), "Backup in progress");
    EXPECT_EQ(text("backupContainsField"), "57.08 GB (48213 files)");
    EXPECT_EQ(text("accountField"), "maria@example.net");
    EXPECT_TRUE(control("accountField").toolTip().contains("maria@example.net"));
    EXPECT_EQ(text("versionField"), "Version 1.2");
    EXPECT_EQ(bar.value(), 93);
    EXPECT_TRUE(bar.isAnimating());
    EXPECT_TRUE(control("openAccountButton").isEnabled());
    EXPECT_TRUE(control("referButton").isHidden());
    EXPECT_TRUE(pane.flags().accountAuthorized);

    setState("serviceState", 8U);
    EXPECT_FALSE(bar.isAnimating());
    setState("serviceState", 7U);
    setState("serviceState", 17U); // does not change the animation
    EXPECT_TRUE(bar.isAnimating());
    setState("isQuotaLimited", true);
    EXPECT_TRUE(bar.isVisible());
    setState("isOverQuota", true);
    EXPECT_FALSE(bar.isVisible());
}

TEST_F(StatusTabTest, ShowsOddAnswersAsTextAndLocksItsControls) {
    showTab();
    connect();
    setState("lowerPriorityMode", true);
    EXPECT_TRUE(control<QCheckBox>("lowerPriorityButton").isChecked());
    daemon.answer("userEmail", "<b>x</b>");
    daemon.answer("computerNumber", 0);
    setState("pendingFileCount", "many"); // of another type
    EXPECT_EQ(text("backupAwaitingField"), "3.83 GB (0 files)");
    EXPECT_EQ(control<QLabel>("accountField").textFormat(), Qt::PlainText);
    EXPECT_FALSE(control("openAccountButton").isEnabled());

    for (const bool isUnlocked : {false, true}) {
        pane.isAuthorized = isUnlocked;
        pane.post(KelvanePrefPaneDaemonStateChangedNotification);
        EXPECT_EQ(control("lowerPriorityButton").isEnabled(), isUnlocked);
        EXPECT_EQ(control("showMenuButton").isEnabled(), isUnlocked);
    }
    pane.calls.clear();
    setState("serviceState", 15U);
    EXPECT_TRUE(pane.calls[0].starts_with("message Kelvane cannot back up")) << pane.calls[0];
    EXPECT_EQ(pane.calls[1] + pane.calls[2], "forceTabConfiguration 4setBadConfigurationFlag");
}

TEST_F(StatusTabTest, ShowsKeptFieldsUntilTheDaemonHasSpokenAndKeepsWhatItSaid) {
    const std::tuple<const char*, const char*, const char*> keptTexts[] = {
        {"lastBackupStatusStr", "backupField", "Idle"},
        {"lastSizeOfBackupStr", "backupContainsField", "1 KB"},
        {"lastNumberOfFilesAwaitingBackupStr", "backupAwaitingField", "2 KB"},
        {"lastAcctEmailStr", "accountField", "old@x.org"}};
    for (const auto& [key, field, value] : keptTexts)
        DefaultsDB::setStringProperty(value, key);
    DefaultsDB::setIntProperty(42, "lastPercentageDoneInt");
    DefaultsDB::setBoolProperty(true, "lastPrioritySettingBool");
    showTab();
    const auto& priority = control<QCheckBox>("lowerPriorityButton");
    EXPECT_FALSE(priority.isEnabled());
    for (const bool isConnected : {false, true}) { // to a daemon whose state is not known yet
        if (isConnected) {
            daemon.answer("daemonState", {});
            daemon.answer("userEmail", "old@x.org");
            connect();
        }
        for (const auto& [key, field, value] : keptTexts)
            EXPECT_EQ(text(field), value) << isConnected;
        EXPECT_EQ(control<ActivityBar>("backupProgress").value(), 42);
        EXPECT_TRUE(priority.isChecked());
        tab->writeStatusFieldsToDefaultsDB();
        for (const auto& [key, field, value] : keptTexts)
            EXPECT_EQ(DefaultsDB::stringProperty(key), value) << isConnected;
    }
    daemon.answerAsUsual("daemonState");
    daemon.answerAsUsual("userEmail");
    poll();
    EXPECT_FALSE(priority.isChecked());
    loseDaemon();
    tab->writeStatusFieldsToDefaultsDB();
    EXPECT_EQ(DefaultsDB::stringProperty("lastBackupStatusStr"), "Backup in progress");
    EXPECT_EQ(DefaultsDB::stringProperty("lastSizeOfBackupStr"), "57.08 GB (48213 files)");
    EXPECT_EQ(DefaultsDB::stringProperty("lastNumberOfFilesAwaitingBackupStr"), "3.83 GB (1906 files)");
    EXPECT_EQ(DefaultsDB::intProperty("lastPercentageDoneInt"), 93);
    EXPECT_EQ(DefaultsDB::stringProperty("lastPrioritySettingBool"), "NO");
}

// The query without an answer is followed by one that notices the broken link, while the tab is being
// updated.
TEST_F(StatusTabTest, ALinkThatIsLostWhileItIsAskedLeavesTheDisconnectedTab) {
    const auto lose = [this] {
        daemon.stop();
        return Value();
    };
    const std::function<void()> losses[] = {
        [&] { daemon.answerWith("userEmail", [&](const Array&) { return lose(); }); },
        [&] { daemon.answerWith("pausedMinutes", [&](const Array&) { return lose(); }); },
        [&] {
            pane.whenRestoreIsEnabled = [&] {
                lose();
                pane.state->updateDaemonState();
                waitForLoss();
            };
        },
    };
    showTab();
    for (const auto& prepare : losses) {
        connect();
        prepare();
        setState("currentBackupFile", pane.calls.size());
        waitForLoss();
        EXPECT_EQ(modes().currentIndex(), 3);
        EXPECT_FALSE(control("lowerPriorityButton").isEnabled());
        EXPECT_TRUE(control("uninstallButton").isVisible());
        EXPECT_EQ(text("accountField"), "maria@example.net");
        EXPECT_EQ(pane.calls.back(), "enableBackupTabItems 0");
        daemon.answerAsUsual("userEmail");
        daemon.answerAsUsual("pausedMinutes");
        pane.state->onEnd();
    }
}

TEST_F(StatusTabTest, TakesEveryTextOfItsFormFromTheBundle) {
    std::string table = "<plist><dict><key>DaemonModeDisabled</key><string>a&#13;b</string>";
    for (const std::string_view key : statusFormTexts)
        table.append("<key>").append(key).append("</key><string>~</string>");
    folder.write("Resources/en.lproj/Localizable.strings", table + "</dict></plist>");
    PaneDouble translated(std::make_shared<Bundle>(folder.path()), loop);
    tab = std::make_unique<KelvaneStatusTabController>(translated);
    for (const QWidget* const widget : tab->view()->findChildren<QWidget*>())
        for (const QVariant& said : {widget->property("text"), widget->property("accessibleDescription")})
            EXPECT_TRUE(said.toString().isEmpty() || said == "~" || said == "Version" || said == "0%")
                << said.toString().toStdString();
    EXPECT_EQ(modes().itemText(1), "~");
    tab->awakeFromNib();
    EXPECT_EQ(text("daemonModeField"), "a\nb");
    tab.reset();
}

} // namespace kelvane::tests
