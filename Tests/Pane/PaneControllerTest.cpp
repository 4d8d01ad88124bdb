#include "Tests/Pane/PaneControllerTest.h"
#include "Tests/Desktop/FakeService.h"
#include "Tests/Harness/RunUntil.h"

#include <QDBusVariant>
#include <QLabel>
#include <QToolButton>

namespace kelvane::tests {

TEST_F(PaneControllerTest, WakesSelectsAndUnselectsItsPartsInOrder) {
    begin();
    EXPECT_EQ(taken(), (Calls{"restore on", "backup on", "status awakes", "backup awakes", "restore awakes",
                              "help awakes"}));
    EXPECT_EQ(pane->tabNames(), (Calls{"Status", "Backup", "Restore", "Help"}));
    EXPECT_FALSE(pane->backupState());
    pane->showOnlineHelp();
    EXPECT_EQ(taken(), Calls{"opens Online Help URL"});
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
    pane->setMessageTabString("a\rb");
    EXPECT_TRUE(std::ranges::any_of(pane->mainView()->findChildren<QLabel*>(),
                                    [](const QLabel* label) { return label->text() == "a\nb"; }));
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
        observers.push_back(notifications->observe(name, pane.get(), [&](const Notification& notice) {
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

// To the daemon each link is new: handlers of an earlier link are no longer called.
TEST_F(PaneControllerTest, ShowsTheProgressOfARestoreOnEachLinkWhileOneRuns) {
    begin();
    const auto isShown = [this] { return restore->progress->isVisibleTo(pane->mainView()); };
    const std::tuple<unsigned, unsigned, bool, bool> links[] = {
        {0U, 51U, false, false}, {7U, 51U, true, false}, {7U, 52U, true, false},
        {7U, 50U, false, false}, {7U, 51U, true, true},  {0U, 51U, false, false}};
    for (const auto& [job, status, isRunning, isHiddenAfter] : links) {
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
        EXPECT_EQ(pane->mainView()->focusWidget() == restore->progress, isRunning);
        pane->backupState()->updateDaemonState(); // its answer means that all earlier calls have arrived
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
    daemon.callPanes("setAlertStrings:", {Value(Array{"", "restore_finished|||", "restore_finished||||failed",
                                                      "restore_finished2||||"})});
    daemon.callPanes("stateChanged:", {15U});
    ASSERT_TRUE(host->loop->runUntil([&] { return !calls.empty(); })) << "by then the alerts have been read";
    EXPECT_TRUE(restore->progress->isVisibleTo(view));
    daemon.callPanes("setAlertString:", {"restore_finished|a|b|c||more"});
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

TEST_F(PaneControllerTest, TheLockButtonDoesWhatItSays) {
    for (const auto& [name, color] : {std::pair("prevent", "#f00"), {"allow", "#0f0"}})
        folder.write(
            std::string("Resources/changes-") + name + ".svg",
            R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 4 4"><path d="M0 0h4v4H0z" fill=")" +
                std::string(color) + R"("/></svg>)");
    begin();
    const auto& lock = *pane->mainView()->findChild<AuthorizationView*>();
    auto& button = *lock.findChild<QToolButton*>();
    int notices = 0;
    const auto observer = notifications->observe(KelvanePrefPaneDaemonStateChangedNotification, pane.get(),
                                                 [&](const Notification&) { ++notices; });
    const auto expect = [&](const char* action, const char* line, const QColor& color, int noticed) {
        EXPECT_EQ(button.text().toStdString(), action);
        EXPECT_EQ(lock.findChild<QLabel*>()->text().toStdString(), line);
        EXPECT_EQ(colorOf(button.icon()), color);
        EXPECT_EQ(notices, noticed);
    };
    const char* const unlock = "Click the lock to make changes.";
    const char* const prevent = "Click the lock to prevent further changes.";
    pane->mainViewDidLoad();
    expect("Unlock", unlock, Qt::red, 0);
    host->loop->runPosted();
    expect("Lock", prevent, Qt::green, 1);
    button.click();
    host->loop->runPosted();
    expect("Unlock", unlock, Qt::red, 2);
    EXPECT_FALSE(pane->prefPaneAccessAuthorized());
    for (const bool isTakenBack : {true, false}) {
        button.click();
        expect("Stop asking", "Waiting for your password…", Qt::red, 2);
        if (isTakenBack)
            button.click();
        host->loop->runPosted();
        isTakenBack ? expect("Unlock", unlock, Qt::red, 2) : expect("Lock", prevent, Qt::green, 3);
        EXPECT_EQ(pane->prefPaneAccessAuthorized(), !isTakenBack);
    }
    AuthorizationView view(*bundle, nullptr);
    const QLabel& line = *view.findChild<QLabel*>();
    using Kind = AuthorizationProblem::Kind;
    for (const auto& [kind, text] :
         {std::pair(Kind::RefusedByChoice, "Every unlocking is refused, as was asked for."),
          {Kind::NotRevoked, "The right could not be given back: why"}}) {
        view.showState({false, false, {kind, "why"}});
        EXPECT_EQ(line.text().toStdString(), text);
        view.showState({false, true, {kind, "why"}});
        EXPECT_EQ(line.text().toStdString(), "Waiting for your password…");
    }
}

TEST_F(PaneControllerTest, ReadsPicturesNamesAndOptionsFromItsBundle) {
    const std::pair<const char*, QColor> pictures[] = {{"blue", Qt::blue},   {"gray", Qt::gray},
                                                       {"red", Qt::red},     {"green-partial", Qt::darkGreen},
                                                       {"green", Qt::green}, {"yellow", Qt::yellow}};
    for (const auto& [name, color] : pictures)
        writePicture(std::string(name) + ".png", color);
    folder.write("Resources/en.lproj/MarketNames.strings",
                 "<plist><dict><key>one</key><string>One</string><key>two</key><string>Two</string>"
                 "<key>same</key><string>same</string></dict></plist>");
    folder.write("Resources/SkinOptions.plist", "<plist><dict><key>a</key><string>b</string></dict></plist>");
    mountPoint = "/System/Volumes/Data";
    daemon.answer("stringValueForProfileKey:", "one");
    begin();
    const QColor bullets[] = {Qt::red, Qt::red, Qt::green, Qt::yellow, Qt::darkGreen, Qt::blue, Qt::red};
    for (std::size_t color = 0; color < std::size(bullets); ++color)
        EXPECT_EQ(colorOf(pane->bulletImageForColor(static_cast<std::int32_t>(color))), bullets[color])
            << color;
    EXPECT_EQ(pane->skinOptions(), Value(Dictionary{{"a", "b"}}));
    EXPECT_TRUE(pane->existsDriveMountedAtSVD());
    mountPoint = "/System/Volumes";
    EXPECT_FALSE(pane->existsDriveMountedAtSVD());
    for (const bool isRunning : {false, true}) {
        EXPECT_EQ(pane->isLaunchAgentProcessRunning("com.KELVANE.agent"), isRunning);
        QDBusConnection::sessionBus().registerService("com.kelvane.Agent");
    }

    select();
    daemon.answer("dictionaryForPath:withDirSizes:", Dictionary{{"fileName", "a"}, {"backupColor", 3}});
    EXPECT_EQ(colorOf(pane->bulletImageForPath("/a")), Qt::yellow);
    daemon.answer("dictionaryForPath:withDirSizes:", {});
    EXPECT_EQ(colorOf(pane->bulletImageForPath("/a")), Qt::red) << "unknown";
    const auto labels = pane->mainView()->findChildren<QLabel*>();
    const auto found = std::ranges::find(labels, "Name of the service", &QLabel::accessibleDescription);
    ASSERT_NE(found, labels.end());
    QLabel* const name = *found;
    // A label that already shows the id keeps it.
    const std::array<std::string, 3> names[] = {{"one", "One", "One"},   {"two", "One", "Two"},
                                                {"three", "Two", "Two"}, {"same", "Two", "Two"},
                                                {"", "Two", "Two"},      {"one", "one", "one"}};
    for (const auto& [id, before, after] : names) {
        daemon.answer("stringValueForProfileKey:", id);
        if (before == id)
            name->setText(before.c_str());
        EXPECT_EQ(name->text().toStdString(), before);
        host->loop->advance(60s);
        EXPECT_EQ(name->text().toStdString(), after) << id;
    }
}

TEST_F(PaneControllerTest, AsksTheDaemonWhenTheUsersSessionComesBack) {
    bool isActive = true;
    int questions = 0;
    FakeService login("org.freedesktop.login1", [&](const QDBusMessage& call) {
        ++questions;
        EXPECT_EQ(call.path().toStdString(), "/org/freedesktop/login1/session/auto");
        return call.createReply(QVariant::fromValue(QDBusVariant(isActive)));
    });
    begin();
    select();
    ASSERT_TRUE(runUntil([&] { return questions == 1; }));
    host->loop->runPosted();
    daemon.forgetCalls();
    // Another property; another session, so that the answer stays; and this session. The last one ensures an
    // answer to the one before.
    const std::tuple<const char*, bool, int> changes[] = {{"IdleHint", true, 1}, {"Active", true, 2},
                                                          {"Active", false, 3},  {"Active", true, 4},
                                                          {"Active", false, 5},  {"Active", false, 6}};
    for (const auto& [property, active, questionsAfter] : changes) {
        isActive = active;
        login.emitSignal("/org/freedesktop/login1/session/_31", "org.freedesktop.DBus.Properties",
                         "PropertiesChanged",
                         {"org.freedesktop.login1.Session", QVariantMap{{property, active}}, QStringList()});
        ASSERT_TRUE(runUntil([&, after = questionsAfter] { return questions == after; }));
    }
    host->loop->runPosted();
    EXPECT_EQ(daemon.callCount("daemonState"), 1U);
}

} // namespace kelvane::tests
