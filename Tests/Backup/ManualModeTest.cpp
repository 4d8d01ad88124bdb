#include "Tests/Backup/BackupTabTest.h"

#include "Common/FileNode/FileNodeFlags.h"
#include "PreferencePane/Backup/BackupTabRules.h"

#include <QProgressBar>
#include <QPushButton>

namespace kelvane::tests {
namespace {

// Whether changes of folders are reported to this process.
bool isWatching() {
    return std::system("grep -qs '^inotify wd:' /proc/$PPID/fdinfo/*") == 0;
}

class ManualModeTest : public BackupTabTest {
protected:
    void beginManual() {
        begin(false);
        setState("serviceState", 6U);
        daemon.forgetCalls();
    }
    [[nodiscard]] const KelvaneBrowserCell& cell(int column, const std::string& title) const {
        return *browser().cell(column, row(column, title));
    }
    [[nodiscard]] bool comesToShow(int column, const Paths& expected) {
        return loop->runUntil([&] {
            loop->advance(0ms);
            return titles(column) == expected;
        });
    }
};

TEST_F(ManualModeTest, ShowsVolumesThatAreThere) {
    daemon.changeWorld([](DaemonWorld& world) {
        world.volumes.emplace_back("/Volumes/Gone");
        world.addFile("/Volumes/Gone", true, 0, false);
        world.file("/Volumes/Gone")->mutableDictionary().set("backupFlags", Backup_Missing);
        world.file("/Volumes/USB")->mutableDictionary().set("backupColor", Backup_Color_Gray);
    });
    beginManual();
    EXPECT_EQ(titles(0), (Paths{"System", "USB"}));
    EXPECT_EQ(cell(0, "System").getFilePath(), "/Volumes/System");
    EXPECT_EQ(cell(0, "USB").stateText(), "Partly backed up");
    EXPECT_FALSE(cell(0, "USB").isLeaf());
    tab->folderChanged("/");
    EXPECT_EQ(daemon.callCount("excludedFiles:"), 0);
    pane.isDriveMountedAtSVD = true; // which the data volume represents
    tab->enableTabItems(true);
    EXPECT_EQ(titles(0), Paths{"USB"});
    pane.isDriveMountedAtSVD = false;
    tab->enableTabItems(true);

    pane.isAuthorized = false; // otherwise its items would be enabled and the volumes read anyway
    daemon.changeWorld([](DaemonWorld& world) { world.volumes = {"/Volumes/USB"}; });
    setState("serviceState", 10U);
    EXPECT_EQ(titles(0).size(), 2);
    setState("serviceState", 25U);
    EXPECT_EQ(titles(0), Paths{"USB"});
    pane.isAuthorized = true;
    tab->enableTabItems(false);
    EXPECT_EQ(titles(0), Paths());
}

TEST_F(ManualModeTest, ShowsFoldersAsTheyAreOnTheDisk) {
    folder.write("USB/.dotted", "");
    folder.write("USB/cache/x", "");
    std::filesystem::create_directory_symlink("docs", folder / "USB/link");
    daemon.answer("policyExcludeList", Array{"/Volumes/USB/cache/", 7});
    daemon.setState("backupState", 25U);
    beginManual();
    choose({"USB"});
    EXPECT_EQ(titles(1), (Paths{"cache", "docs", "link", "photos"})); // while there is no policy
    daemon.forgetCalls();
    setState("backupState", 26U);
    EXPECT_EQ(titles(1), (Paths{"docs", "link", "photos"}));
    EXPECT_TRUE(cell(1, "link").isLeaf());
    EXPECT_FALSE(cell(1, "docs").isLeaf());
    EXPECT_EQ(daemon.callCount("backupColorsForFiles:"), 1);
    daemon.answer("backupColorsForFiles:", Array{3, 2});
    choose({"docs"}, {}, 1);
    EXPECT_EQ(titles(2), (Paths{"a.txt", "b.txt"})); // only those in the answer
    EXPECT_EQ(cell(2, "a.txt").stateText(), "Waiting to be backed up");
    daemon.answer("backupColorsForFiles:", Array{2, 2, 2, 2, 2, 2});
    choose({"docs"}, {}, 1);
    EXPECT_EQ(titles(2), (Paths{"a.txt", "b.txt", "deep"}));
    // The policy is read again when the daemon reports that everything has changed.
    daemon.answer("policyExcludeList", Array());
    tab->fileChanged("/");
    EXPECT_EQ(titles(1), (Paths{"cache", "docs", "link", "photos"}));
}

TEST_F(ManualModeTest, ReadsOpenFoldersByTheRulesOfTheModeThatTheButtonSets) {
    daemon.answerWith("backupColorsForFiles:", [this](const Array& arguments) {
        const bool isAutomatic = daemon.world().values["automaticMode"].boolValue();
        return Value(Array(arguments[0].array().size(), Value(isAutomatic ? 3 : 2)));
    });
    beginManual();
    choose({"USB", "docs"});
    const std::string manual = cell(2, "a.txt").stateText();
    click("manualAutoButton");
    click("autoManualButton");
    EXPECT_EQ(cell(2, "a.txt").stateText(), manual);
    EXPECT_GE(daemon.callCount("backupColorsForFiles:"), 2U) << "it was read again";
}

TEST_F(ManualModeTest, MarksWhatIsSelected) {
    addFile("docs/new1.txt", false);
    addFile("docs/new2.txt", false);
    beginManual();
    choose({"USB", "docs", "new1.txt"});
    EXPECT_EQ(text("manualToggleButton"), "Back this up");
    choose({"new2.txt"}, Qt::ControlModifier, 2);
    daemon.forgetCalls();
    click("manualToggleButton");
    // The first one is pending now but checked: the second one remains to be added.
    EXPECT_EQ(asked("addFileToBackup:"), (Paths{"/Volumes/USB/docs/new1.txt", "/Volumes/USB/docs/new2.txt"}));
    EXPECT_EQ(text("manualToggleButton"), "Do not back this up");
    tab->fileChanged("/Volumes/USB/docs/new1.txt");
    EXPECT_EQ(cell(2, "new1.txt").stateText(), "Waiting to be backed up");

    choose({"a.txt"}, {}, 2);
    click("manualToggleButton");
    EXPECT_EQ(asked("removeFileFromBackup:"), Paths{"/Volumes/USB/docs/a.txt"});
    tab->fileChanged("/Volumes/USB/docs/a.txt");
    EXPECT_EQ(cell(2, "a.txt").stateText(), "Not backed up");
    EXPECT_EQ(text("manualToggleButton"), "Back this up");

    choose({"a.txt"}, Qt::ControlModifier, 2); // no longer selected
    choose({"USB"}, Qt::ControlModifier, 0);
    EXPECT_FALSE(control("manualToggleButton").isEnabled());
    choose({"USB"});
    EXPECT_TRUE(control("manualToggleButton").isEnabled());
}

TEST_F(ManualModeTest, MarksNothingThatTheButtonHasNotSpokenOf) {
    beginManual();
    choose({"USB", "docs", "a.txt"});
    std::filesystem::remove(folder / "USB/docs/a.txt");
    EXPECT_TRUE(comesToShow(2, {"b.txt", "deep"}));
    daemon.forgetCalls();
    click("manualToggleButton");
    EXPECT_EQ(asked("removeFileFromBackup:"), Paths());
    EXPECT_EQ(text("manualToggleButton"), "Back this up"); // now about the folder
    click("manualToggleButton");
    EXPECT_EQ(asked("addFileToBackup:"), Paths{"/Volumes/USB/docs"});
}

// Creates files to mark and selects all of them.
class ManyFiles : public ManualModeTest {
protected:
    static constexpr std::size_t count = 40;

    void selectAll() {
        for (std::size_t number = 0; number < count; ++number)
            addFile("many/" + std::to_string(number), false);
        beginManual();
        choose({"USB", "many", "0"});
        QTest::keyClick(browser().columnView(2), Qt::Key_A, Qt::ControlModifier);
        daemon.forgetCalls();
    }
};

TEST_F(ManyFiles, CostOneQuestionEach) {
    selectAll();
    click("manualToggleButton");
    EXPECT_EQ(daemon.callCount("addFileToBackup:"), count);
    EXPECT_LE(daemon.callCount("dictionaryForPath:withDirSizes:"), count + 1);
    EXPECT_EQ(text("manualToggleButton"), "Do not back this up");
}

TEST_F(ManyFiles, ShowHowFarItIsAndStopAtCancel) {
    selectAll();
    std::mutex mutex;
    std::condition_variable never;
    daemon.answerWith("dictionaryForPath:withDirSizes:", [&](const Array& arguments) { // a slow daemon
        std::unique_lock guard(mutex);
        never.wait_for(guard, 20ms);
        const auto* const file = daemon.world().file(arguments.front().stringValue());
        return file ? *file : Value();
    });
    pane.mainView()->setWindowTitle("The pane");
    int value = 0;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, [&] {
        auto* const bar = pane.mainView()->findChild<QProgressBar*>();
        if (bar == nullptr || bar->value() == value)
            return;
        EXPECT_EQ(bar->maximum(), static_cast<int>(count));
        EXPECT_EQ(bar->window()->windowTitle(), "The pane");
        EXPECT_FALSE(control("manualToggleButton").isEnabled());
        if (std::exchange(value, bar->value()) > 0) // it has advanced
            bar->window()->findChild<QPushButton*>()->click();
    });
    look.start(5ms);
    click("manualToggleButton");
    EXPECT_GT(value, 0);
    EXPECT_EQ(daemon.callCount("addFileToBackup:"), daemon.callCount("dictionaryForPath:withDirSizes:"));
    EXPECT_LT(daemon.callCount("addFileToBackup:"), count);
    EXPECT_EQ(pane.mainView()->findChild<QProgressBar*>(), nullptr);
    EXPECT_TRUE(control("manualToggleButton").isEnabled());
}

TEST_F(ManualModeTest, SpeaksOfWhatIsSelectedWhenItCanBeMarkedAgain) {
    addFile("docs/new.txt", false);
    beginManual();
    for (bool* const hindrance : {&pane.isAuthorized, &pane.isRecovering}) {
        choose({"USB", "docs", "a.txt"});
        EXPECT_EQ(text("manualToggleButton"), "Do not back this up");
        *hindrance = !*hindrance;
        tab->enableTabItems(true);
        choose({"new.txt"}, {}, 2);
        EXPECT_FALSE(control("manualToggleButton").isEnabled());
        *hindrance = !*hindrance;
        tab->enableTabItems(true);
        EXPECT_EQ(text("manualToggleButton"), "Back this up");
    }
    pane.flags().manualToggleButtonEnable = false;
    click("manualToggleButton");
    pane.flags().manualToggleButtonEnable = true;
    daemon.forgetCalls();
    click("manualToggleButton");
    EXPECT_EQ(asked("addFileToBackup:"), Paths{"/Volumes/USB/docs/new.txt"});
}

TEST_F(ManualModeTest, ShowsAnAnswerOfNothingAsAnEmptyColumn) {
    beginManual();
    choose({"USB", "docs"});
    daemon.answer("backupColorsForFiles:", Value());
    browser().reloadColumn(2);
    EXPECT_EQ(titles(2), Paths());
    daemon.answer("childrenDictionariesForPath:", Value());
    browser().reloadColumn(0);
    EXPECT_EQ(titles(0), Paths());
}

TEST_F(ManualModeTest, ShowsWhatHasChangedWhileNobodyCouldTell) {
    daemon.answer("policyExcludeList", Array{"/Volumes/USB/before/"});
    beginManual();
    choose({"USB", "docs", "a.txt"});
    EXPECT_TRUE(isWatching());
    loseDaemon();
    EXPECT_FALSE(isWatching());
    addFile("docs/z.txt");
    daemon.changeWorld([](DaemonWorld& world) { world.include("/Volumes/USB/docs/a.txt", false); });
    daemon.answer("policyExcludeList", Array{"/Volumes/USB/photos/"});
    daemon.forgetCalls();
    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(titles(1), Paths{"docs"});
    EXPECT_EQ(titles(2).back(), "z.txt");
    EXPECT_EQ(daemon.callCount("backupColorsForFiles:"), 2) << "each open folder once";
    EXPECT_EQ(text("manualToggleButton"), "Back this up");
    const auto switchMode = [this](bool isAutomatic) {
        setAutomatic(isAutomatic);
        setState("serviceState", isAutomatic ? 7U : 6U);
    };
    switchMode(true);
    daemon.changeWorld([](DaemonWorld& world) { world.include("/Volumes/USB/docs/b.txt", false); });
    daemon.forgetCalls();
    tab->fileChanged("/Volumes/USB/docs/b.txt"); // ignored now
    EXPECT_EQ(daemon.calls().size(), 0);
    switchMode(false);
    EXPECT_EQ(cell(2, "b.txt").stateText(), "Not backed up");
}

TEST_F(ManualModeTest, ReadsTheToggleStateAnewForEachPath) {
    folder.write("USB/docs/unknown.txt", "");
    daemon.changeWorld([](DaemonWorld& world) { world.include("/Volumes/USB/docs/a.txt", false); });
    daemon.answerWith("addFileToBackup:", [this](const Array&) { // pending but not checked
        daemon.changeWorld([](DaemonWorld& world) {
            world.file("/Volumes/USB/docs/a.txt")->mutableDictionary().set("backupColor", 3);
        });
        return Value();
    });
    daemon.answer("removeFileFromBackup:", Value());
    beginManual();
    choose({"USB", "docs", "a.txt"});
    choose({"b.txt"}, Qt::ControlModifier, 2);
    choose({"unknown.txt"}, Qt::ControlModifier, 2);
    daemon.forgetCalls();
    click("manualToggleButton");
    ASSERT_TRUE(daemon.waitForCalls("removeFileFromBackup:"));
    EXPECT_EQ(daemon.callCount("addFileToBackup:"), 1);
    EXPECT_EQ(asked("removeFileFromBackup:"), Paths{"/Volumes/USB/docs/b.txt"});

    daemon.changeWorld([](DaemonWorld& world) { world.addFile("/Volumes/USB/docs", true, 0, false); });
    choose({"USB", "docs"});
    daemon.answerWith("backupColorsForFiles:", [this](const Array&) { // while its contents are reloaded
        pane.flags().manualToggleButtonState = togglestate::remove;
        return Array();
    });
    click("manualToggleButton");
    EXPECT_TRUE(daemon.waitForCalls("addFileToBackup:"));
    EXPECT_TRUE(daemon.waitForCalls("removeFileFromBackup:"));
    daemon.forgetCalls();
    pane.flags().manualToggleButtonState = togglestate::remove;
    click("manualToggleButton");
    EXPECT_EQ(daemon.callCount("addFileToBackup:"), 0);
    loop->advance(0ms);
    EXPECT_GT(daemon.callCount("backupColorsForFiles:"), 0) << "after the removal, too";
}

TEST_F(ManualModeTest, FollowsTheDisk) {
    beginManual();
    choose({"USB", "docs"});
    Paths inDocs{"a.txt", "b.txt", "deep"};
    const auto start = std::chrono::steady_clock::now();
    for (const char* const name : {"made 1", "made 2", "made 3", "made 4", "made.txt"}) {
        addFile(std::string("docs/") + name, false);
        inDocs.emplace_back(name);
        EXPECT_TRUE(comesToShow(2, inDocs)) << "once the one before has been handled";
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms);
    std::filesystem::rename(folder / "USB/docs/made.txt", folder / "USB/docs/named.txt");
    inDocs.back() = "named.txt";
    EXPECT_TRUE(comesToShow(2, inDocs));
    std::filesystem::remove_all(folder / "USB/docs");
    folder.write("USB/made", "");
    EXPECT_TRUE(comesToShow(1, {"made", "photos"}));
    EXPECT_EQ(browser().lastColumn(), 1); // the folder's column has been removed
}

TEST_F(ManualModeTest, KeepsWhatItShowsWhenTheLinkIsLostInTheMiddle) {
    beginManual();
    choose({"USB", "docs", "a.txt"});
    const std::pair<const char*, const char*> moments[] = {{"backupColorsForFiles:", "docs"},
                                                           {"childrenDictionariesForPath:", nullptr},
                                                           {"dictionaryForPath:withDirSizes:", nullptr}};
    for (const auto& [selector, title] : moments) {
        SCOPED_TRACE(selector);
        daemon.breakLinkAt(selector);
        if (title)
            choose({title}, {}, 1);
        else
            click("manualToggleButton");
        if (std::string_view(selector).starts_with("children")) // the poll's own query
            setState("pendingFileCount", daemon.calls().size());
        waitForLoss();
        EXPECT_EQ(shownView(), "disabledBackupView");
        EXPECT_EQ(titles(0), (Paths{"System", "USB"}));
        EXPECT_EQ(titles(1), (Paths{"docs", "photos"}));
        EXPECT_EQ(titles(2), (Paths{"a.txt", "b.txt", "deep"}));
        daemon.answerAsUsual(selector);
        loop->advance(1s);
        ASSERT_TRUE(pane.connected());
        EXPECT_EQ(shownView(), "manualBackupView");
    }
}

} // namespace
} // namespace kelvane::tests
