#include "Host/Appearance/Appearance.h"
#include "Host/Panes/PaneBundles.h"
#include "Tests/Desktop/FakeService.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Host/PaneFolder.h"

#include <QApplication>
#include <QDBusVariant>
#include <QImage>
#include <QPainter>
#include <QPalette>
#include <QProcess>
#include <QProxyStyle>
#include <QStyleOption>
#include <csignal>

namespace kelvane::host {
namespace {

using tests::EnvironmentVariable;

TEST(PaneBundles, AreFoundOnceAndInOrder) {
    const tests::PaneFolder own;
    const tests::PaneFolder shared;
    const auto named = [](const char* identifier) {
        return tests::PaneFolder::Settings{{"CFBundleIdentifier", identifier}};
    };
    own.add("Zebra", named("z"));
    const std::string first = own.add("First", named("f"));
    shared.add("Other Zebra", named("z"));
    shared.add("Anna", {});
    shared.add("Broken", {}, "");
    shared.folder().write("File.prefPane", "");
    std::string titles;
    for (const PaneDescription& pane :
         findPanes({own.folder().path(), "/nonexistent", shared.folder().path()}, first, {}))
        titles += pane.title + ',';
    EXPECT_EQ(titles, "First,Anna,Zebra,Broken,");
}

TEST(PaneBundles, GetTheDaemonThatIsNamedOrTheirOwnOrTheUsualOne) {
    const tests::PaneFolder panes;
    const std::string folder = panes.folder().path();
    const EnvironmentVariable runtime("XDG_RUNTIME_DIR", folder.c_str());
    const EnvironmentVariable state("XDG_STATE_HOME", folder.c_str());
    const std::string own = panes.add("Own", {{"DaemonPath", "/own"}, {"Kelvane Log Path", "/own.log"}});
    const std::string usual = panes.add("Usual", {{"DaemonPath", ""}, {"Kelvane Log Path", ""}});
    const auto pathsOf = [](const std::string& bundle, const DaemonPaths& named) {
        const PaneBundle described = describePane(bundle, named).bundle;
        return described->information("DaemonPath").stringValue() + ' ' +
               described->information("Kelvane Log Path").stringValue();
    };
    EXPECT_EQ(pathsOf(own, {}), "/own /own.log");
    EXPECT_EQ(pathsOf(own, {"/named", "/named.log"}), "/named /named.log");
    EXPECT_EQ(pathsOf(usual, {"/named", "/named.log"}), "/named /named.log");
    EXPECT_EQ(pathsOf(usual, {}), folder + "/kelvane/daemon.sock " + folder + "/kelvane/daemon.log");
}

class SettingsProgram : public testing::Test {
protected:
    SettingsProgram() {
        process.setProcessChannelMode(QProcess::MergedChannels);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_CONFIG_HOME", QString::fromStdString(panes.folder().path()));
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        process.setProcessEnvironment(environment);
    }
    void start(const QStringList& arguments) { process.start(KELVANE_SETTINGS, arguments); }
    [[nodiscard]] int status() {
        EXPECT_TRUE(process.waitForFinished(20'000));
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        return process.exitCode();
    }

    const tests::PaneFolder panes;
    const QString pictures = QString::fromStdString(panes.folder() / "pictures/new");
    QProcess process;
};

TEST_F(SettingsProgram, TakesAPictureOfEachTabAndEnds) {
    const QString bundle = QString::fromStdString(panes.add("A", {{"Tabs", "Status Back/up"}}));
    start({"--pane", bundle, "--tab", "Nothing", "--screenshot", pictures, "--appearance", "dark", "--daemon",
           "/nowhere", "--log", "/nothing", "--authorization", "denied"});
    EXPECT_EQ(status(), 0);
    const QString output = process.readAll();
    EXPECT_TRUE(output.contains("there is no tab \"Nothing\"")) << output.toStdString();
    for (const char* const name : {"/status.png", "/back-up.png"}) {
        EXPECT_TRUE(output.contains(pictures + name + '\n'));
        const QImage picture(pictures + name);
        EXPECT_EQ(picture.size(), QSize(860, 600));
        EXPECT_LT(picture.pixelColor(850, 590).lightness(), 60);
    }
    EXPECT_TRUE(panes.log().ends_with("A selected,A tab Nothing,A tab Status,A tab Back/up,A unselected,"
                                      "A deleted,"))
        << panes.log();
    EXPECT_FALSE(std::filesystem::exists(panes.folder() / "kelvane-settings.conf"));
}

TEST_F(SettingsProgram, SaysWhichPictureItCannotWrite) {
    start({"--pane", QString::fromStdString(panes.add("A")), "--screenshot", "/proc/none"});
    EXPECT_EQ(status(), 1);
    EXPECT_TRUE(process.readAll().contains("cannot write /proc/none/a.png"))
        << "the only picture, of the pane";
}

TEST_F(SettingsProgram, EndsCleanlyOnASignal) {
    start({"--pane", QString::fromStdString(panes.add("A"))});
    EXPECT_TRUE(tests::runUntil([&] { return panes.log().ends_with("A selected,"); }));
    ::kill(static_cast<pid_t>(process.processId()), SIGTERM);
    EXPECT_EQ(status(), 0);
    EXPECT_TRUE(panes.log().ends_with("A selected,A unselected,A deleted,"));
    EXPECT_TRUE(std::filesystem::exists(panes.folder() / "kelvane-settings.conf"));
}

TEST_F(SettingsProgram, RefusesWhatItDoesNotKnow) {
    for (const QStringList& wrong :
         {QStringList{"--authorization", "maybe"}, {"--appearance", "pink"}, {"--unknown"}, {"word"}}) {
        start(wrong);
        EXPECT_EQ(status(), 2) << wrong.join(' ').toStdString();
    }
    process.setProcessEnvironment({});
    start({});
    EXPECT_EQ(status(), 1);
    EXPECT_TRUE(process.readAll().contains("there is no display"));
}

bool isDark() {
    return QApplication::palette().color(QPalette::Window).lightness() < 128;
}

TEST(Appearance, GivesButtonsRoomAndTintsThoseThatAreHeld) {
    applyAppearance(Appearance::Light);
    const auto& style = dynamic_cast<const QProxyStyle&>(*QApplication::style());
    const auto room = [&](QStyle::ContentsType type, const QStyleOption& option) {
        return style.sizeFromContents(type, &option, {50, 20}, nullptr) -
               style.baseStyle()->sizeFromContents(type, &option, {50, 20}, nullptr);
    };
    EXPECT_EQ(room(QStyle::CT_PushButton, QStyleOptionButton()), QSize(16, 4));
    EXPECT_EQ(room(QStyle::CT_ComboBox, QStyleOptionComboBox()), QSize(0, 4));
    EXPECT_EQ(room(QStyle::CT_CheckBox, QStyleOptionButton()), QSize(0, 0));
    QStyleOptionButton option;
    option.rect = {0, 0, 40, 20};
    option.palette.setColor(QPalette::Button, QColor(200, 0, 0));
    option.palette.setColor(QPalette::Highlight, QColor(0, 0, 200));
    const auto blueOf = [&](const QStyle& painting, QStyle::State state) {
        QImage image(40, 20, QImage::Format_RGB32);
        QPainter painter(&image);
        option.state = state;
        painting.drawPrimitive(QStyle::PE_PanelButtonCommand, &option, &painter);
        return image.pixelColor(20, 10).blue();
    };
    EXPECT_EQ(blueOf(style, QStyle::State_Enabled), blueOf(*style.baseStyle(), QStyle::State_Enabled));
    const int tint = blueOf(style, QStyle::State_Enabled | QStyle::State_On);
    EXPECT_GT(tint, 40);
    EXPECT_LT(tint, 120) << "less than half of it";
}

TEST(Appearance, FollowsTheDesktopAndReadsWellInBothShades) {
    const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    ASSERT_NE(address, nullptr) << "needs a session bus";
    const QVariant dark = QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusVariant(1U))));
    tests::FakeService portal(
        "org.freedesktop.portal.Desktop", [&](const QDBusMessage& call) { return call.createReply(dark); },
        address);
    const QPalette own = QApplication::palette();
    applyAppearance(Appearance::System);
    EXPECT_TRUE(tests::runUntil([] { return isDark(); }));
    const auto change = [&](const char* key, const QVariant& value) {
        portal.emitSignal("/org/freedesktop/portal/desktop", "org.freedesktop.portal.Settings",
                          "SettingChanged", {"org.freedesktop.appearance", key, value});
    };
    change("color-scheme", QVariant::fromValue(QDBusVariant(0U)));
    EXPECT_TRUE(tests::runUntil([] { return !isDark(); }));
    EXPECT_EQ(QApplication::palette(), own);
    change("contrast", QVariant::fromValue(QDBusVariant(1U)));
    change("color-scheme", QVariant::fromValue(QDBusVariant("dark")));
    change("color-scheme", QVariant::fromValue(QDBusVariant(1U)));
    EXPECT_TRUE(tests::runUntil([] { return isDark(); }));

    for (const Appearance appearance : {Appearance::Light, Appearance::Dark}) {
        applyAppearance(appearance);
        const QPalette palette = QApplication::palette();
        for (const auto& [text, ground] : {std::pair(QPalette::WindowText, QPalette::Window),
                                           {QPalette::Text, QPalette::Base},
                                           {QPalette::ButtonText, QPalette::Button},
                                           {QPalette::HighlightedText, QPalette::Highlight},
                                           {QPalette::Link, QPalette::Window}}) {
            const int distance = palette.color(text).lightness() - palette.color(ground).lightness();
            EXPECT_GT(std::abs(distance), 80) << text;
        }
    }
    QApplication::setPalette(own);
}

} // namespace
} // namespace kelvane::host
