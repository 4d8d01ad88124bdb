#include "Tests/Browser/BrowserTest.h"

#include "Common/FileNodeFlags.h"
#include "Tests/Harness/PaneDouble.h"
#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

class BrowserPaths : public ColumnBrowserTest {
protected:
    const Volumes volumes{"Disk", {{"Other", "/media/joe/Other"}}};
};

TEST_F(BrowserPaths, LeadToTheColumnThatShowsTheItem) {
    open({"Disk", "docs", "a.txt"});
    struct Case {
        const char* path;
        int column;
        const char* filePath;
    };
    const Case cases[] = {
        {"/", 0, "/Volumes/Disk"},
        {"/Volumes/Other", 0, "/Volumes/Other"},
        {"/docs/a.txt", 2, "/Volumes/Disk/docs/a.txt"},
        {"/Volumes/Disk/docs/b.txt", 2, "/Volumes/Disk/docs/b.txt"},
        {"/docs/A.txt", -1, ""},
        {"/photos/a.txt", -1, ""}, // of another folder than the one that is open
        {"/Volumes/Disk/docs/a.txt/further", -1, ""},
        {"/Volumes", -1, ""},
        {"/System/Volumes/Data", -1, ""},
        {"", -1, ""},
    };
    for (const Case& example : cases) {
        SCOPED_TRACE(example.path);
        BrowserRow row;
        EXPECT_EQ(columnForPath(example.path, *browser, volumes, &row), example.column);
        EXPECT_EQ(columnForPath(example.path, *browser, volumes), example.column);
        EXPECT_EQ(row.isValid() ? browser->cell(row)->getFilePath() : "", example.filePath);
    }
    EXPECT_EQ(columnToPath(1, *browser), "/Volumes/Disk/docs");
    EXPECT_EQ(columnToPath(-1, *browser), "");
    EXPECT_EQ(columnToPath(3, *browser), "");
    EXPECT_EQ(columnForPath("/old.txt", *browser, volumes), 1);
    EXPECT_TRUE(browser->cell(index(1, "old.txt"))->isEnabled());
}

struct PaneWithBullets : PaneDouble {
    QIcon bulletImageForColor(std::int32_t color) const override {
        QIcon& bullet = bullets[color];
        if (bullet.isNull())
            bullet = QIcon(QPixmap(8, 8));
        return bullet;
    }
    mutable std::map<std::int32_t, QIcon> bullets;
};

class ChangedFiles : public BackupStateTest {
protected:
    void SetUp() override {
        connect();
        pane.state = std::shared_ptr<BackupState>(state.get(), [](BackupState*) {});
        folders.listing = {{"/Volumes", {"System/"}}, {"/Volumes/System", {"a.txt", "-off.txt"}}};
        browser.setDelegate(folders);
        browser.reloadColumn(0);
        browser.columnView(0)->setCurrentIndex(browser.rowAt(0, 0));
        folders.fills = 0;
    }
    const KelvaneBrowserCell& changed(const Value& node, bool isRestore) {
        folders.fills = 0;
        daemon.answer("dictionaryForPath:withDirSizes:", node);
        EXPECT_TRUE(fileChanged("/a.txt", browser, isRestore, pane));
        return *browser.cell(1, 0);
    }

    PaneWithBullets pane;
    ListedFolders folders;
    ColumnBrowser browser;
};

TEST_F(ChangedFiles, GetTheBulletAndTheWordsOfTheirColour) {
    const std::pair<std::int32_t, const char*> cases[] = {
        {Backup_Color_Green, "Backed up"}, {Backup_Color_Gray, "Partly backed up"}, {99, "Not backed up"}};
    for (const auto& [color, text] : cases) {
        const KelvaneBrowserCell& cell = changed(Dictionary{{"backupColor", color}}, false);
        EXPECT_EQ(cell.bulletImage().cacheKey(), pane.bulletImageForColor(color).cacheKey());
        EXPECT_EQ(cell.stateText(), text);
    }
    EXPECT_EQ(changed(Value(), false).bulletImage().cacheKey(),
              pane.bulletImageForColor(Backup_Color_Undefined).cacheKey());
    EXPECT_TRUE(browser.cell(1, 1)->bulletImage().isNull());
    EXPECT_EQ(folders.fills, 0);
}

TEST_F(ChangedFiles, CanBeRestoredOnceTheyHaveADate) {
    const Value date(Date{1000.0});
    EXPECT_FALSE(changed(Dictionary{{"backupFlags", Backup_Backup}}, true).isEnabled());
    EXPECT_TRUE(changed(Dictionary{{"backupFlags", Backup_Backup}, {"backupDate", date}}, true).isEnabled());
    EXPECT_TRUE(changed(Value(), true).isEnabled()) << "finding the row enables it";
    EXPECT_EQ(folders.fills, 0);
    (void)changed(Dictionary{{"backupDate", date}}, true);
    EXPECT_EQ(folders.fills, 1) << "no part of the backup";
}

TEST_F(ChangedFiles, ThatAreNotShownAreNoneOfTheBrowsersBusiness) {
    EXPECT_FALSE(fileChanged("/b.txt", browser, false, pane));
    EXPECT_TRUE(logged("Error:").empty());
    EXPECT_TRUE(fileChanged("/System/Volumes/Data", browser, false, pane));
    EXPECT_EQ(logged("Error:").front(),
              "Error:  fileChanged for /System/Volumes/Data, column -1 does not match browser cell");
    EXPECT_EQ(daemon.callCount("dictionaryForPath:withDirSizes:"), 0);
    EXPECT_EQ(folders.fills, 0);
}

} // namespace
} // namespace kelvane::tests
