#include "Tests/Desktop/FakeService.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Pane/PaneControllerTest.h"

#include <QDBusVariant>
#include <QLabel>
#include <QToolButton>

namespace kelvane::tests {
namespace {

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
    const auto observer = notifications->observe(std::string(KelvanePrefPaneDaemonStateChangedNotification),
                                                 pane.get(), [&](const Notification&) { ++notices; });
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

    select();
    QLabel* name = nullptr;
    for (QLabel* const label : pane->mainView()->findChildren<QLabel*>())
        if (label->accessibleDescription() == "Name of the service")
            name = label;
    ASSERT_NE(name, nullptr);
    // Whoever puts the id there means it.
    for (const auto& [id, before, after] :
         std::vector<std::tuple<const char*, const char*, const char*>>{{"one", "One", "One"},
                                                                        {"two", "One", "Two"},
                                                                        {"three", "Two", "Two"},
                                                                        {"same", "Two", "Two"},
                                                                        {"", "Two", "Two"},
                                                                        {"one", "one", "one"}}) {
        daemon.answer("stringValueForProfileKey:", id);
        if (before == std::string(id))
            name->setText(before);
        EXPECT_EQ(name->text(), before);
        host->loop->advance(60s);
        EXPECT_EQ(name->text(), after) << id;
    }
}

TEST_F(PaneControllerTest, AsksTheDaemonWhenTheUsersSessionComesBack) {
    bool isActive = true;
    int questions = 0;
    FakeService login("org.freedesktop.login1", [&](const QDBusMessage& call) {
        ++questions;
        return call.createReply(QVariant::fromValue(QDBusVariant(isActive)));
    });
    begin();
    select();
    ASSERT_TRUE(runUntil([&] { return questions == 1; }));
    host->loop->runPosted();
    daemon.forgetCalls();
    for (const bool active : {false, true, false, false}) { // the last one has the one before it answered
        isActive = active;
        const int before = questions;
        login.emitSignal("/org/freedesktop/login1/session/_31", "org.freedesktop.DBus.Properties",
                         "PropertiesChanged",
                         {"org.freedesktop.login1.Session", QVariantMap{{"Active", active}}, QStringList()});
        ASSERT_TRUE(runUntil([&] { return questions == before + 1; }));
    }
    host->loop->runPosted();
    EXPECT_EQ(daemon.callCount("daemonState"), 1U);
}

} // namespace
} // namespace kelvane::tests
