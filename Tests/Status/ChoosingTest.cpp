#include "Platform/Desktop/Broadcast.h"
#include "Support/Preferences/DefaultsDB.h"
#include "Tests/Status/StatusTabTest.h"

#include <QAccessible>
#include <QWheelEvent>

namespace kelvane::tests {
namespace {

class Choosing : public StatusTabTest {
protected:
    void SetUp() override {
        connect();
        showTab();
        daemon.forgetCalls();
    }
    // Returns the daemon's calls since the last time, in order.
    [[nodiscard]] Strings orders() {
        poll(); // its answer means that all earlier calls have arrived
        Strings orders;
        for (const ReceivedCall& call : daemon.calls())
            if (call.selector.starts_with("set"))
                orders.push_back(call.selector + call.arguments[0].description());
        daemon.forgetCalls();
        return orders;
    }
};

TEST_F(Choosing, ActsWarnsAndStoresByTheModeThatIsLeft) {
    // The choice, the end of the sheet's warning and the answer; then the calls, the mode and the stored
    // values.
    const std::tuple<int, std::string, const char*, Strings, int, int> steps[] = {
        {0, "", "", {}, 0, -1}, // is the current mode already
        {1, "", "", {"setPausedMinutes:1440"}, 1, 1},
        {0, "", "", {"setPausedMinutes:0", "setRecoverMode:0"}, 0, 0},
        {2, "backup.\n\nAre you sure you want to put Kelvane in Recover Mode? ", "Cancel", {}, 0, 0},
        {2, "in Recover Mode? ", "Proceed", {"setRecoverMode:1", "setPausedMinutes:0"}, 2, 2},
        {0, "\n\nAre you sure you want to exit Recover Mode and resume your backup? ", "Cancel", {}, 2, 2},
        {0, "resume your backup? ", "Proceed", {"setPausedMinutes:0", "setRecoverMode:0"}, 0, 0},
    };
    for (const auto& [chosen, warning, button, told, mode, stored] : steps) {
        SCOPED_TRACE(warning + std::to_string(chosen));
        choose(chosen);
        ASSERT_EQ(sheet() == nullptr, warning.empty());
        if (sheet()) {
            EXPECT_TRUE(sheet()->text().toStdString().ends_with(warning)) << sheet()->text().toStdString();
            EXPECT_EQ(sheet()->windowModality(), Qt::WindowModal);
            answer(button);
        }
        EXPECT_EQ(modes().currentIndex(), mode); // at once
        EXPECT_EQ(orders(), told);
        EXPECT_EQ(modes().currentIndex(), mode);
        EXPECT_EQ(DefaultsDB::intProperty("modeSelectionPopupIndex", false, -1), stored);
    }
}

TEST_F(Choosing, AListThatIsOpenStandsStillAndTakesNoChoiceThatIsGone) {
    modes().showPopup();
    daemon.answer("pausedMinutes", 30U);
    setState("paused", true);
    EXPECT_TRUE(text("daemonModeField").starts_with("Kelvane is paused"));
    EXPECT_EQ(items() + std::to_string(modes().currentIndex()), "EPRD0");
    decide(2);
    EXPECT_EQ(sheet(), nullptr);
    EXPECT_EQ(orders(), Strings());
    EXPECT_EQ(items() + std::to_string(modes().currentIndex()), "EPrd1");

    modes().showPopup();
    daemon.answerAsUsual("pausedMinutes");
    setState("paused", false);
    modes().hidePopup();
    QCoreApplication::processEvents();
    EXPECT_EQ(items() + std::to_string(modes().currentIndex()), "EPRD0");
}

TEST_F(Choosing, NeitherTheWheelNorAKeyChooses) {
    QWheelEvent wheel({5, 5}, {5, 5}, {}, {0, -120}, Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(&modes(), &wheel);
    EXPECT_FALSE(wheel.isAccepted());
    QTest::keyClick(&modes(), Qt::Key_PageDown);
    EXPECT_FALSE(modes().view()->isVisible());
    QTest::keyClick(&modes(), Qt::Key_Down);
    EXPECT_TRUE(modes().view()->isVisible());
    EXPECT_EQ(modes().currentIndex(), 0);
    EXPECT_EQ(orders(), Strings());
}

TEST_F(Choosing, ADaemonThatDiesBehindTheSheetIsSoughtAgainButNotFromAHiddenPane) {
    for (const bool isHidden : {false, true}) {
        tab->didSelectPrefPane();
        choose(2);
        loseDaemon();
        pane.calls.clear();
        if (isHidden)
            tab->writeStatusFieldsToDefaultsDB(); // closes the sheet as well
        else
            answer("Proceed");
        ASSERT_TRUE(runUntil([this] { return sheet() == nullptr; }));
        EXPECT_EQ(pane.calls.empty() || pane.calls.front() != "didSelect", isHidden);
        EXPECT_EQ(modes().currentIndex(), 3);
        ASSERT_TRUE(daemon.start());
        loop->advance(1s);
    }
}

TEST_F(Choosing, EachControlDoesItsOwnThingHoweverItIsOperated) {
    Strings senders;
    const BroadcastListener agent("com.kelvane.notify.defaultsPropertyChanged",
                                  [&](const std::string& sender) { senders.push_back(sender); });
    ASSERT_EQ(agent.error(), "");
    const QString press = QAccessibleActionInterface::pressAction();
    const QString toggle = QAccessibleActionInterface::toggleAction();
    // An accessible action on the control, or a click; then the calls and the stored value.
    const std::tuple<const char*, QString, Strings, std::string> steps[] = {
        {"lowerPriorityButton", {}, {"setLowerPriorityMode:1"}, ""},
        {"lowerPriorityButton", toggle, {"setLowerPriorityMode:0"}, ""},
        {"showMenuButton", {}, {}, "NO"},
        {"showMenuButton", toggle, {}, "YES"},
        {"openAccountButton", {}, {}, "YES"},
        {"referButton", press, {}, "YES"},
    };
    for (const auto& [name, action, told, showsInMenuBar] : steps) {
        SCOPED_TRACE(name + action.toStdString());
        if (action.isEmpty())
            click(name);
        else
            QAccessible::queryAccessibleInterface(&control(name))->actionInterface()->doAction(action);
        EXPECT_EQ(orders(), told);
        EXPECT_EQ(DefaultsDB::stringProperty("showKelvaneStatusInMenuBar").value_or(""), showsInMenuBar);
    }
    EXPECT_TRUE(runUntil([&] { return senders.size() == 2 && pane.opened().size() == 2; }));
    EXPECT_EQ(pane.opened(),
              (Strings{"http://backup.example.net/a?481516&maria@example.net", "http://ex.org/refer"}));
    setState("lowerPriorityMode", true); // changed by another program: shown, and not sent again
    EXPECT_EQ(orders(), Strings());
    EXPECT_EQ(senders, Strings(2, "com.kelvane.prefsPane"));
    tab->openURLUsingKey("Online Help URL"); // which this bundle does not have
    daemon.answer("serverURL", "");
    tab->openURLUsingKey("Open Account URL");
    EXPECT_EQ(pane.opened().size(), 2U);
}

TEST_F(Choosing, TheHoursOfAPauseFollowTheDaemonWithinOnePoll) {
    choose(1);
    const auto minutesAre = [this](std::uint32_t minutes, const char* end) {
        daemon.answer("pausedMinutes", minutes);
        poll();
        EXPECT_TRUE(text("daemonModeField").ends_with(end)) << text("daemonModeField");
    };
    minutesAre(1440, "resume in 24 hours.");
    minutesAre(1380, "resume in 23 hours.");
    minutesAre(60, "resume in 1 hours."); // by another program
    minutesAre(0, "click the Backup tab.)");
    loseDaemon();
    EXPECT_EQ(modes().currentIndex(), 3);
}

} // namespace
} // namespace kelvane::tests
