#include "Common/FileNode/FileNodeFlags.h"
#include "PreferencePane/Restore/RestoreTabRules.h"
#include "Tests/Restore/RestoreTabTest.h"

#include <QDialog>

namespace kelvane::tests {
namespace {

class SelectingTest : public RestoreTabTest {
protected:
    void change(const std::string& path, std::string_view key, const Value& value) {
        daemon.changeWorld(
            [&](DaemonWorld& world) { world.file(path)->mutableDictionary().set(key, value); });
    }
    [[nodiscard]] Strings reloadedVolumes(bool isDriveMountedAtSVD) {
        pane.isDriveMountedAtSVD = isDriveMountedAtSVD;
        browser().reloadColumn(0);
        return titles(0);
    }
};

TEST_F(SelectingTest, ShowsVolumesByWhatIsBackedUpOfThem) {
    daemon.changeWorld([](DaemonWorld& world) {
        for (const char* const name : {"/Volumes/Empty", "/System/Volumes/Data"}) {
            world.volumes.emplace_back(name);
            world.addFile(name, true, 0, true);
        }
        world.addFile("/System/Volumes/Data/x", false, 1, true);
    });
    change("/Volumes/Gone", "backupFlags", Backup_Missing);
    change("/System/Volumes/Data", "fileName", "/System/Volumes/Data");
    connect();
    EXPECT_EQ(titles(0), (Strings{"System", "USB", "Gone", "[Empty]", "System"}));
    EXPECT_EQ(browser().cell(0, 0)->getFilePath(), "/Volumes/System");
    EXPECT_EQ(browser().cell(0, 4)->getFilePath(), "/System/Volumes/Data");
    EXPECT_FALSE(browser().cell(0, 3)->isLeaf());
    // When the data volume is mounted elsewhere, "/" is not listed once it is empty.
    EXPECT_EQ(reloadedVolumes(true).size(), 5);
    change("/home", "path", "/elsewhere/home");
    EXPECT_EQ(reloadedVolumes(true), (Strings{"USB", "Gone", "[Empty]", "System"}));
    EXPECT_EQ(reloadedVolumes(false).front(), "[System]");
}

TEST_F(SelectingTest, ShowsWhatIsInTheBackup) {
    const std::string docs = "/Volumes/USB/docs/";
    const std::string odd = " \u202Efdp\u2215x ";
    addFile("docs/new.txt", false);
    addFile("docs/never", false);
    addFile("docs/" + odd);
    change(docs + "new.txt", "backupFlags", Backup_Backup);
    daemon.changeWorld([&](DaemonWorld& world) {
        for (const char* const name : {"asleep", "folder"})
            world.addFile(docs + name, true, 0, false);
    });
    change(docs + "asleep", "backupFlags", Backup_Folder | Backup_Not_Active);
    connect();
    choose({"USB", "docs"});
    EXPECT_EQ(titles(2), (Strings{"a.txt", "b.txt", "[new.txt]", odd, "folder"}));
    (void)browser().grab();
    EXPECT_FALSE(browser().cell(2, 3)->image().isNull()) << "by its path, as the name tells no kind";
    EXPECT_TRUE(browser().cell(2, 0)->isLeaf());
    EXPECT_FALSE(browser().cell(2, 4)->isLeaf());

    tab->fileChanged(docs + "new.txt");
    EXPECT_EQ(titles(2)[2], "[new.txt]");
    change(docs + "new.txt", "backupDate", Date{1});
    tab->fileChanged(docs + "new.txt");
    EXPECT_EQ(titles(2)[2], "new.txt");
    change(docs + "a.txt", "backupFlags", 0U);
    tab->fileChanged(docs + "a.txt");
    EXPECT_EQ(titles(2), (Strings{"b.txt", "new.txt", odd, "folder"}));
}

TEST_F(SelectingTest, LooksForVolumesOnlyWhileThereAreNone) {
    daemon.changeWorld([](DaemonWorld& world) { world.volumes.clear(); });
    connect();
    for (const auto& [state, isReloaded] : {std::pair(10U, false), {24U, false}, {1U, true}, {9U, true}}) {
        daemon.forgetCalls();
        setState("serviceState", state);
        EXPECT_EQ(daemon.callCount("childrenDictionariesForPath:"), isReloaded ? 1 : 0) << state;
    }
    daemon.changeWorld([&](DaemonWorld& world) { world.volumes = {"/Volumes/USB"}; });
    setState("serviceState", 25U);
    EXPECT_EQ(titles(0), Strings{"USB"});
    daemon.forgetCalls();
    setState("serviceState", 3U);
    EXPECT_EQ(daemon.callCount("childrenDictionariesForPath:"), 0);
}

TEST_F(SelectingTest, TellsWhatIsSelected) {
    const std::vector<const char*> controls{"destinationButton", "restoreAssistantButton", "restoreButton",
                                            "getInfoButton"};
    const std::string date = pane.services.dateAndTime(Date{757479845});
    change("/Volumes/USB/docs/b.txt", "backupDate", Date{1});
    connect();
    EXPECT_EQ(text("filenameField") + text("dateField"), "[][No selection]");
    EXPECT_EQ(enabled(controls), "destinationButton restoreAssistantButton restoreButton");
    choose({"USB", "docs", "a.txt"});
    EXPECT_EQ(text("filenameField") + text("dateField"), "a.txt" + date);
    choose({"b.txt"}, Qt::ControlModifier, 2);
    EXPECT_EQ(text("filenameField") + text("dateField"), "[Multiple files selected]" + date);
    EXPECT_EQ(enabled(controls), "destinationButton restoreAssistantButton restoreButton");
    // The name's placeholder stays.
    daemon.answer("dictionaryForPath:withDirSizes:", Value());
    choose({"docs"}, {}, 1);
    EXPECT_EQ(text("filenameField") + text("dateField"), "[Multiple files selected][Unavailable]");
    EXPECT_EQ(control("dateField").accessibleDescription(), "Unavailable");
    EXPECT_EQ(enabled(controls), "destinationButton restoreAssistantButton getInfoButton");
    daemon.answerAsUsual("dictionaryForPath:withDirSizes:");
    tab->enableTabItems(false);
    EXPECT_EQ(enabled(controls), "getInfoButton");
    choose({"a.txt"}, {}, 2);
    EXPECT_EQ(enabled(controls), "");
    pane.isAuthorized = false;
    tab->enableTabItems(true);
    EXPECT_EQ(enabled(controls), "");
    choose({"a.txt"}, {}, 2);
    EXPECT_EQ(text("dateField"), date);
    EXPECT_EQ(enabled(controls), "");
}

TEST_F(SelectingTest, ShowsWhatHasChangedWhileNobodyCouldTell) {
    connect();
    choose({"USB", "docs", "a.txt"});
    loseDaemon();
    addFile("docs/c.txt");
    change("/Volumes/USB/docs/a.txt", "backupFlags", 0U);
    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(titles(2), (Strings{"b.txt", "c.txt"}));
    EXPECT_EQ(text("filenameField"), "docs");
}

TEST_F(SelectingTest, OpensTheInfoWindowAndTheAssistant) {
    connect();
    choose({"USB", "docs"});
    click("getInfoButton");
    EXPECT_EQ(info.fileNode()->sizeValue(), 2U); // including the folder's contents
    EXPECT_TRUE(info.window()->isVisible());
    // The daemon calls its handlers, which are removed at the end of a restore and when the link is lost.
    const std::function<void()> events[] = {
        [] {}, [this] { tab->progressView()->hide(), tab->progressView()->show(); },
        [this] { daemon.closePanes(), waitForLoss(), loop->advance(1s); }};
    for (std::size_t time = 0; const auto& event : events) {
        event();
        ++time;
        for (const std::size_t click : {2 * time - 1, 2 * time}) {
            this->click("restoreAssistantButton");
            EXPECT_TRUE(daemon.waitForCalls("showRestoreWizard", click));
            EXPECT_EQ(daemon.callCount("setStateHandler"), time);
        }
    }
}

TEST_F(SelectingTest, ShowsAnAnswerOfNothingAsAnEmptyColumn) {
    connect();
    choose({"USB", "docs"});
    daemon.answer("childrenDictionariesForPath:", Value());
    for (const int column : {2, 0}) {
        browser().reloadColumn(column);
        EXPECT_EQ(titles(column), Strings());
    }
}

TEST_F(SelectingTest, KeepsWhatItShowsWhenTheLinkIsLostInTheMiddle) {
    EXPECT_TRUE(control("disabledRestoreView").isVisible());
    connect();
    choose({"USB", "docs", "a.txt"});
    const std::pair<const char*, int> moments[] = {{"childrenDictionariesForPath:", 0},
                                                   {"childrenDictionariesForPath:", 2},
                                                   {"dictionaryForPath:withDirSizes:", 0}};
    for (const auto& [selector, answersBefore] : moments) {
        SCOPED_TRACE(selector);
        daemon.breakLinkAt(selector, answersBefore);
        browser().reloadColumn(0);
        click("getInfoButton");
        expectLoss();
        EXPECT_EQ(titles(2), (Strings{"a.txt", "b.txt"}));
        EXPECT_EQ(info.fileNode(), nullptr);
        loop->advance(1s);
        ASSERT_TRUE(pane.connected());
        EXPECT_EQ(titles(0), (Strings{"System", "USB", "Gone"}));
        EXPECT_EQ(text("filenameField"), "a.txt");
    }
    daemon.closePanes(); // noticed by a query for the selection
    choose({"b.txt"}, {}, 2);
    expectLoss();
}

TEST(RestoreRules, KeepNamesAsTheyAre) {
    const std::string paths[] = {"/Volumes/B/a\u2215b/ \u202Efdp.doc ",
                                 "/Volumes/A",
                                 "/Volumes/B",
                                 "/System/Volumes/Data/x",
                                 "/Volumes",
                                 "/home/Volumes/x"};
    EXPECT_EQ(restoreTarget(paths[0], std::nullopt), paths[0]);
    EXPECT_EQ(restoreTarget(paths[0], "/home/x"), "/home/x/ \u202Efdp.doc ");
    EXPECT_EQ(restoreTarget("/Volumes/B", "/"), "/B");
    EXPECT_EQ(volumesOf(paths), (std::set<std::string>{"/Volumes/A", "/Volumes/B"}));
}

TEST(RestoreRules, CountFromTheLargestCount) {
    const std::tuple<std::uint32_t, bool, std::uint32_t, int> counts[] = {
        {3, true, 0, 0},   {3, false, 0, 0},   {2, false, 1, 33},           {5, true, 0, 0},
        {1, false, 4, 80}, {0, false, 5, 100}, {4'000'000'000, true, 0, 0}, {1, false, 3'999'999'999, 99}};
    RestoreCounts restore;
    for (const auto& [count, isNewTotal, done, percent] : counts) {
        EXPECT_EQ(restore.setPendingCount(count), isNewTotal) << count;
        EXPECT_EQ(restore.done(), done) << count;
        EXPECT_EQ(restore.percent(), percent) << count;
    }
    restore.begin();
    EXPECT_TRUE(restore.setPendingCount(2));
}

} // namespace
} // namespace kelvane::tests
