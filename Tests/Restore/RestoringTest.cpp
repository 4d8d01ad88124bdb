#include "Tests/Restore/RestoreTabTest.h"

#include "PreferencePane/Services/ActivityBar.h"

namespace kelvane::tests {
namespace {

// Two files are selected.
class RestoringTest : public RestoreTabTest {
protected:
    RestoringTest() {
        connect();
        choose({"USB", "docs", "a.txt"});
        choose({"b.txt"}, Qt::ControlModifier, 2);
        daemon.forgetCalls();
    }
    void restore(int destination, const char* button) {
        pressRestore(destination);
        answer(button);
    }
    // Returns the targets of the jobs since the last call.
    [[nodiscard]] Strings targets() {
        Strings found;
        for (const ReceivedCall& call : daemon.calls()) {
            if (call.selector != "restoreFile:toPath:version:priority:")
                continue;
            const char* const path = found.empty() ? "/Volumes/USB/docs/a.txt" : "/Volumes/USB/docs/b.txt";
            found.push_back(call.arguments.at(1).stringValue());
            EXPECT_EQ(call.arguments, (Array{path, found.back(), 0U, 50U}));
        }
        daemon.forgetCalls();
        return found;
    }
    [[nodiscard]] static Strings in(const std::string& place) { return {place + "/a.txt", place + "/b.txt"}; }
    [[nodiscard]] ActivityBar& bar() const { return control<ActivityBar>("restoreProgress"); }

    const std::string inPlace = "/Volumes/USB/docs";
    const Strings shown{"showRestoreProgress 1"};
};

TEST_F(RestoringTest, GoesWhereTheAlertIsAnswered) {
    const std::string onDesktop = folder / "Desktop/Kelvane Restored Files";
    const std::tuple<int, const char*, std::string> cases[] = {
        {0, "Restore to Original", inPlace},  {0, "Restore to Desktop", onDesktop},
        {0, "Other Location…", ""},           {0, "Cancel", ""},
        {1, "Restore to Desktop", onDesktop}, {1, "Restore to Original", inPlace},
        {1, "Other Location…", ""},           {1, "Cancel", ""},
    };
    for (const auto& [destination, button, place] : cases) {
        SCOPED_TRACE(std::to_string(destination) + button);
        pane.calls.clear();
        restore(destination, button);
        EXPECT_EQ(targets(), place.empty() ? Strings() : in(place));
        EXPECT_EQ(pane.calls, place.empty() ? Strings() : shown);
        EXPECT_EQ(panel() != nullptr, button == std::string("Other Location…"));
        delete panel();
    }
}

TEST_F(RestoringTest, GoesWhereThePanelPoints) {
    std::filesystem::create_directory_symlink(folder / "USB", folder / "link");
    const std::pair<std::string, std::string> places[] = {{folder / "Desktop", folder / "Desktop"},
                                                          {folder / "USB", "/Volumes/USB"},
                                                          {folder / "link", "/Volumes/USB"}};
    for (const auto& [chosen, target] : places) {
        pressRestore(2);
        ASSERT_EQ(sheet(), nullptr);
        panel()->selectFile(QString::fromStdString(chosen));
        static_cast<QDialog*>(panel())->accept();
        EXPECT_EQ(targets(), in(target));
        ASSERT_TRUE(runUntil([this] { return panel() == nullptr; }));
    }
    pane.calls.clear();
    pressRestore(2);
    panel()->selectFile(QString::fromStdString(folder / "link"));
    std::filesystem::remove(folder / "link"); // not yet noticed by the panel
    static_cast<QDialog*>(panel())->done(QDialog::Accepted);
    EXPECT_EQ(targets(), Strings());
    ASSERT_TRUE(runUntil([this] { return panel() == nullptr; }));
    pressRestore(2);
    panel()->reject();
    pressRestore(-1);
    EXPECT_EQ(pane.calls, Strings());
}

TEST_F(RestoringTest, TakesWhateverIsOnTheDesktop) {
    folder.write("user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/Table\"\n");
    folder.write("Table", "a file where the folder should be");
    restore(1, "Restore to Desktop");
    EXPECT_EQ(pane.calls, Strings());
    std::filesystem::remove(folder / "Table");
    restore(1, "Restore to Desktop");
    EXPECT_EQ(targets(), in(folder / "Table/Kelvane Restored Files"));
    EXPECT_TRUE(std::filesystem::remove(folder / "Table/Kelvane Restored Files")); // was created
    folder.write("user-dirs.dirs", "XDG_DESKTOP_DIR=\"" + folder / "USB/Table" + "\"\n");
    restore(1, "Restore to Desktop");
    EXPECT_EQ(targets(), in("/Volumes/USB/Table/Kelvane Restored Files")) << "by its name for the daemon";
    folder.write("user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/Table\"\n");
    folder.write("Table/Kelvane Restored Files", "in the way");
    restore(0, "Restore to Desktop");
    EXPECT_EQ(targets().size(), 2);
}

TEST_F(RestoringTest, KnowsWhichVolumesAreMissing) {
    std::filesystem::create_directories(folder / "USB/x");
    // The selection, the volume's path by the daemon, and whether it can be restored in place.
    const std::tuple<Strings, const char*, bool> cases[] = {
        {{"System", "home"}, "/", true},
        {{"USB", "docs"}, "/Volumes/USB", true},
        {{"USB", "docs"}, "/Volumes/USB/x", false}, // exists but is not a volume
        {{"USB", "docs"}, "/Volumes/Nowhere", false},
        {{"USB", "docs"}, nullptr, false},
        {{"Gone", "old"}, "/Volumes/USB", false}};
    for (const auto& [path, fileName, canRestore] : cases) {
        SCOPED_TRACE(path.front() + (fileName ? fileName : " unknown"));
        choose(path);
        tab->enableTabItems(true);
        daemon.answer("dictionaryForPath:withDirSizes:",
                      fileName ? Value(Dictionary{{"fileName", fileName}}) : Value());
        pressRestore(0);
        EXPECT_EQ(sheetButton("Restore to Original").isEnabled(), canRestore);
        delete sheet();
    }
    daemon.answer("dictionaryForPath:withDirSizes:", Dictionary{{"fileName", "/"}});
    choose({"System"});
    choose({"Gone"}, Qt::ControlModifier);
    tab->enableTabItems(true);
    pressRestore(0);
    EXPECT_FALSE(sheetButton("Restore to Original").isEnabled()) << "one of two is missing";
    delete sheet();
    // No question is asked when restoring to the Desktop.
    pressRestore(1);
    EXPECT_TRUE(sheetButton("Restore to Original").isEnabled());
    sheetButton("Help").click();
    EXPECT_TRUE(sheet()->isVisible());
    EXPECT_EQ(pane.calls, Strings{"showOnlineHelp"});
}

TEST_F(RestoringTest, ShowsItsProgressBeforeItLooksAtTheSelection) {
    choose({"USB"}, Qt::ControlModifier);
    tab->enableTabItems(true);
    restore(1, "Restore to Desktop");
    EXPECT_EQ(targets(), Strings());
    tab->restoredPendingCount(0);
    EXPECT_EQ(pane.calls, (Strings{"showRestoreProgress 1", "showRestoreProgress 0"}));
}

TEST_F(RestoringTest, RestoresNothingThatTheFieldsHaveNotSpokenOf) {
    choose({"a.txt"}, {}, 2);
    daemon.changeWorld([](DaemonWorld& world) {
        world.file("/Volumes/USB/docs/a.txt")->mutableDictionary().set("backupFlags", 0U);
    });
    tab->fileChanged("/Volumes/USB/docs/a.txt");
    EXPECT_EQ(titles(2), Strings{"b.txt"});
    pressRestore(0);
    EXPECT_EQ(sheet(), nullptr);
    EXPECT_EQ(text("filenameField"), "docs"); // now about the folder
}

TEST_F(RestoringTest, TellsHowFarItIs) {
    restore(0, "Restore to Original");
    EXPECT_TRUE(bar().isVisible() && bar().isIndeterminate() && bar().isAnimating());
    tab->restoredFileName("a.txt");
    tab->restoredFileSize(1536);
    tab->restoredPendingCount(3);
    EXPECT_FALSE(bar().isIndeterminate());
    tab->restoredPendingCount(2);
    EXPECT_EQ(text("restoreStatusField"), "Restoring item 2 of 3, 1.50 KB");
    EXPECT_EQ(text("awaitingRestoreField"), "2 files");
    EXPECT_EQ(bar().value(), 33);

    click("restorePauseButton");
    tab->restoredPendingCount(1);
    EXPECT_TRUE(bar().isIndeterminate() && bar().isAnimating());
    EXPECT_TRUE(control<QAbstractButton>("restorePauseButton").isChecked());
    click("restorePauseButton");
    EXPECT_FALSE(bar().isIndeterminate() || bar().isAnimating());
    EXPECT_EQ(bar().value(), 66);

    // Another restore during this one resets the count and is not paused.
    click("restorePauseButton");
    EXPECT_TRUE(bar().isIndeterminate() && bar().isAnimating());
    restore(0, "Restore to Original");
    EXPECT_FALSE(control<QAbstractButton>("restorePauseButton").isChecked());
    EXPECT_TRUE(bar().isIndeterminate() && bar().isAnimating());
    EXPECT_EQ(bar().value(), 0);
    tab->restoredPendingCount(2);
    EXPECT_EQ(text("restoreStatusField"), "Restoring item 1 of 2, 1.50 KB");
    click("restorePauseButton");
    click("restoreCancelButton");
    EXPECT_TRUE(daemon.waitForCalls("cancelAllRestoreJobs"));
    EXPECT_EQ(pane.calls.back(), "showRestoreProgress 0");
    EXPECT_EQ(tab->progressView()->focusProxy(), &control("restorePauseButton")); // has the keyboard focus
    tab->progressView()->hide();                                                  // by the pane
    EXPECT_FALSE(control<QAbstractButton>("restorePauseButton").isChecked());
    tab->progressView()->show(); // for a restore of another program
    tab->restoredPendingCount(3);
    EXPECT_FALSE(bar().isIndeterminate());
}

TEST_F(RestoringTest, EndsWithTheLinkThatIsLostInTheMiddle) {
    daemon.breakLinkAt("restoreFile:toPath:version:priority:");
    restore(0, "Restore to Original");
    expectLoss();
    EXPECT_EQ(targets(), Strings{inPlace + "/a.txt"});
    click("restoreCancelButton");
    loop->advance(1s);

    daemon.breakLinkAt("dictionaryForPath:withDirSizes:"); // while it looks for the volumes
    pressRestore(0);
    expectLoss();
    EXPECT_TRUE(runUntil([this] { return !sheet(); }));
    for (const int destination : {0, 2}) { // an alert, and a panel
        loop->advance(1s);
        pane.calls.clear();
        pressRestore(destination);
        EXPECT_TRUE(sheet() || panel());
        daemon.closePanes();
        expectLoss();
        EXPECT_TRUE(runUntil([this] { return !sheet() && !panel(); }));
        EXPECT_EQ(pane.calls, Strings());
    }
    loop->advance(1s);
    pressRestore(0);
    sheetButton("Restore to Original").click(); // the link is lost before the answer arrives
    daemon.closePanes();
    waitForLoss();
    EXPECT_TRUE(runUntil([this] { return !sheet(); }));
    QCoreApplication::processEvents();
    EXPECT_EQ(pane.calls, Strings());
}

} // namespace
} // namespace kelvane::tests
