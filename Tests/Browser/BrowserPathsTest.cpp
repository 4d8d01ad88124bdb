#include "Tests/Browser/BrowserTest.h"

#include "Tests/Harness/PaneDouble.h"

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
}

struct ChangedFiles : ColumnBrowserTest {
    PaneDouble pane; // without a daemon
};

TEST_F(ChangedFiles, ThatAreNotShownAreNoneOfTheBrowsersBusiness) {
    open({"Disk", "docs"});
    folders.fills = 0;
    EXPECT_FALSE(fileChanged("/Volumes/Disk/docs/none.txt", *browser, false, pane));
    EXPECT_TRUE(fileChanged("/Volumes/Disk/docs/a.txt", *browser, false, pane));
    EXPECT_EQ(browser->cell(2, 0)->stateText(), "Not backed up") << "nobody knows it";
    EXPECT_TRUE(fileChanged("/Volumes/Disk/old.txt", *browser, true, pane));
    EXPECT_TRUE(browser->cell(index(1, "old.txt"))->isEnabled()) << "finding the row enables it";
    EXPECT_TRUE(fileChanged("/System/Volumes/Data", *browser, false, pane));
    EXPECT_EQ(folders.fills, 0);
}

} // namespace
} // namespace kelvane::tests
