#include "Host/SettingsHost.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Host/PaneFolder.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <gtest/gtest.h>
#include <iterator>

namespace kelvane::host {
namespace {

class SettingsHostTest : public testing::Test {
protected:
    void start(const std::vector<std::string>& bundles) {
        std::vector<PaneDescription> descriptions;
        for (const std::string& bundle : bundles)
            descriptions.push_back(describePane(bundle, {}));
        host = std::make_unique<SettingsHost>(Options(), loop, std::move(descriptions));
        host->show();
    }
    [[nodiscard]] bool comesTo(const std::string& log) {
        return tests::runUntil([&] { return panes.log() == log; });
    }
    // Returns the texts of all visible labels whose text can be selected.
    [[nodiscard]] QString texts() {
        QString texts;
        const auto selectable = Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard;
        for (const QLabel* const label : host->window().findChildren<QLabel*>())
            if (label->isVisible() &&
                (label->text().isEmpty() || label->textInteractionFlags() == selectable))
                texts += label->text().remove(QChar(0x200b)) + '\n';
        return texts;
    }

    const tests::PaneFolder panes{};
    const tests::EnvironmentVariable configuration{"XDG_CONFIG_HOME", panes.folder().path().c_str()};
    const std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
    std::unique_ptr<SettingsHost> host;
};

TEST_F(SettingsHostTest, TakesPanesThroughTheirLifeAndPaintsBeforeItSelects) {
    start({panes.add("A"), panes.add("B"), panes.add("C")});
    const std::string begin = "A made,A awake,A loaded,A painted,A selected,";
    EXPECT_TRUE(comesTo(begin)) << panes.log();
    host->window().choosePane(1);
    const std::string second = begin + "A unselected,B made,B awake,B loaded,B painted,B selected,";
    EXPECT_TRUE(comesTo(second)) << panes.log();
    host->window().choosePane(0);
    EXPECT_TRUE(comesTo(second + "B unselected,A selected,")) << panes.log();
    EXPECT_GT(host->window().findChild<QStackedWidget*>()->width(), 500);
    panes.forgetLog();
    host->window().close();
    EXPECT_EQ(panes.log(), "A unselected,");
    host->end(); // a second end changes nothing
    EXPECT_EQ(panes.log(), "A unselected,");
    host.reset();
    EXPECT_EQ(panes.log(), "A unselected,A deleted,B deleted,");
}

TEST_F(SettingsHostTest, APaneThatEndsTheHostGoesOnUntilItsCallIsOver) {
    start({panes.add("A", {{"Terminate", "selected"}})});
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_EQ(panes.log(), "A made,A awake,A loaded,A painted,A selected,A went on,A unselected,");
}

TEST_F(SettingsHostTest, APaneThatIsLeftBeforeItWasSelectedIsNotSelected) {
    start({panes.add("A"), panes.add("B")});
    EXPECT_TRUE(tests::runUntil([&] { return panes.log().ends_with("A loaded,"); }));
    host->window().choosePane(1);
    EXPECT_TRUE(tests::runUntil([&] { return panes.log().ends_with("B selected,"); }));
    EXPECT_EQ(panes.log().find("A selected"), std::string::npos);
    EXPECT_EQ(panes.log().find("A unselected"), std::string::npos);
}

TEST_F(SettingsHostTest, SaysWhyAPaneCannotBeShownAndShowsTheOthers) {
    const std::string damaged = panes.add("Damaged", {}, "");
    panes.folder().write("Damaged.prefPane/Info.plist", "<plist><dict>");
    const std::string noCode = panes.folder().write("note.txt", "no code");
    const std::pair<std::string, const char*> expected[] = {
        {panes.folder() / "Missing.prefPane", "There is no such folder."},
        {damaged, "It is damaged: cannot read Info.plist: not a property list."},
        {panes.add("Empty", {}, ""), "Its bundle contains no plug-in."},
        {panes.add("Outside", {{"CFBundleExecutable", "../PlugIns/Code"}}),
         "Its bundle contains no plug-in."},
        {panes.add("Text", {}, noCode), "Its plug-in cannot be loaded: "},
        {panes.add("Library", {}, PLAIN_LIBRARY), "Its plug-in is not a pane."},
        {panes.add("Other", {}, OTHER_TEST_PANE), "It was built for another version of this program"},
        {panes.add("NoView", {{"View", "none"}}), "Its plug-in did not create a pane."},
        {panes.add("Maker", {{"Fault", "made"}}), "It could not start: a fault on purpose."},
        {panes.add("Waker", {{"Fault", "awake"}}), "It failed: a fault on purpose."},
        {panes.add("Selector", {{"Fault", "selected"}}), "It failed: a fault on purpose."},
    };
    std::vector<std::string> bundles;
    for (const auto& [bundle, text] : expected)
        bundles.push_back(bundle);
    bundles.push_back(panes.add("Good"));
    start(bundles);
    for (int i = 0; i < static_cast<int>(std::size(expected)); ++i) {
        host->window().choosePane(i);
        EXPECT_TRUE(tests::runUntil([&] { return texts().contains(expected[i].second); }))
            << expected[i].second << " in " << texts().toStdString();
        EXPECT_TRUE(texts().contains(QString::fromStdString(expected[i].first)));
    }
    host->window().choosePane(static_cast<int>(std::size(expected)));
    EXPECT_TRUE(tests::runUntil([&] { return panes.log().ends_with("Good selected,"); }));
    EXPECT_EQ(panes.log().find("Other "), std::string::npos); // none of its code has run
    EXPECT_EQ(panes.log().find("Waker loaded"), std::string::npos);
}

std::ptrdiff_t entriesOf(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

TEST_F(SettingsHostTest, AHundredSelectionsKeepNoThreadDescriptorOrWindow) {
    start({panes.add("A"), panes.add("B")});
    const auto select = [&](int index) {
        panes.forgetLog();
        host->window().choosePane(index);
        EXPECT_TRUE(tests::runUntil([&] { return panes.log().ends_with(" selected,"); }));
    };
    select(1);
    select(0);
    const auto count = [] {
        return std::tuple(entriesOf("/proc/self/fd"), entriesOf("/proc/self/task"),
                          QApplication::allWidgets().size());
    };
    const auto before = count();
    for (int i = 1; i <= 100; ++i)
        select(i % 2);
    EXPECT_EQ(count(), before);
}

TEST_F(SettingsHostTest, ListsPanesWithTheirPictures) {
    QPixmap red(24, 24);
    red.fill(Qt::red);
    SettingsWindow window;
    window.addPane(QIcon(red), "A");
    EXPECT_FALSE(window.findChild<QListWidget*>()->item(0)->icon().isNull());
}

TEST_F(SettingsHostTest, CopiesWhatTheAboutPaneSays) {
    start({ABOUT_PANE});
    QPushButton* copy = nullptr;
    ASSERT_TRUE(
        tests::runUntil([&] { return (copy = host->window().findChild<QPushButton*>()) != nullptr; }));
    copy->click();
    const QString copied = QGuiApplication::clipboard()->text();
    for (const char* const fact : {"Computer: ", "\nVersion: ", "\nSystem: ", "\nToolkit: Qt 6"})
        EXPECT_TRUE(copied.contains(fact)) << fact << copied.toStdString();
}

TEST_F(SettingsHostTest, RemembersItsSizeAndSurvivesADamagedMemory) {
    start({});
    EXPECT_TRUE(texts().contains("There are no panes"));
    host->window().setGeometry(20, 30, 901, 611);
    host->end();
    start({});
    EXPECT_EQ(host->window().size(), QSize(901, 611));
    panes.folder().write("kelvane-settings.conf", "[window]\ngeometry=\"@ByteArray(\\x1\\xd9nonsense)\"\n");
    start({});
    EXPECT_EQ(host->window().size(), QSize(860, 600));
}

} // namespace
} // namespace kelvane::host
