#include "PreferencePane/Browser/ColumnModel.h"
#include "Tests/Browser/BrowserTest.h"
#include "Tests/Harness/PaneDouble.h"

#include <QPersistentModelIndex>
#include <QScrollBar>
#include <random>
#include <set>

namespace kelvane::tests {
namespace {

using Reloading = ColumnBrowserTest;

TEST_F(Reloading, ChangesNothingForTheOneWhoLooks) {
    std::vector<std::string>& disk = folders.listing["/Volumes/Disk"];
    for (int number = 100; number < 300; ++number)
        disk.push_back("file " + std::to_string(number));
    open({"Disk", "docs", "a.txt"});
    QListView& view = *browser->columnView(1);
    view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum() / 2 + 3);
    const QPersistentModelIndex seen = view.indexAt({5, 40});
    const QRect place = view.visualRect(seen);

    const auto replaceSome = [&] {
        for (std::size_t row = 5; row < 90; row += 2)
            disk[row] += " changed";
    };
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"as it was", [] {}},
        {"new above",
         [&] {
             disk.insert(disk.begin(), {"new", "newer/"});
         }},
        {"gone above", [&] { std::erase(disk, "plan.txt"); }},
        {"gone at the edge",
         [&] {
             std::erase(disk, view.indexAt({5, 0}).data().toString().toStdString());
         }},
        {"new and gone all over", replaceSome},
        {"in another order", [&] { std::rotate(disk.begin(), disk.begin() + 3, disk.end()); }},
    };
    for (const auto& [what, change] : cases) {
        SCOPED_TRACE(what);
        change();
        browser->reloadColumn(1);
        EXPECT_EQ(browser->rowCount(1), static_cast<int>(disk.size()));
        EXPECT_EQ(selected(), "docs/a.txt");
        EXPECT_EQ(columnToPath(1, *browser), "/Volumes/Disk/docs");
        EXPECT_EQ(browser->lastColumn(), 2);
        EXPECT_EQ(view.visualRect(seen), place);
        EXPECT_EQ(choices.size(), 0);
    }
}

TEST_F(Reloading, ClosesTheColumnsOfAFolderThatHasGone) {
    const auto before = folders.listing["/Volumes/Disk"];
    for (const std::vector<std::string>& disk : {std::vector<std::string>{"photos/"}, {"docs", "photos/"}}) {
        SCOPED_TRACE(disk.front());
        open({"Disk", "docs", "deep", "end.txt"});
        folders.listing["/Volumes/Disk"] = disk;
        browser->reloadColumn(1);
        EXPECT_EQ(browser->lastColumn(), 1);
        EXPECT_EQ(browser->selectedFilePaths(), std::vector<std::string>{"/Volumes/Disk"});
        EXPECT_EQ(columnWithKeyboard(), 1);
        EXPECT_EQ(choices.size(), 0);
        folders.listing["/Volumes/Disk"] = before;
        browser->reloadColumn(1);
    }
}

TEST_F(Reloading, ForgetsADelegateThatHasGone) {
    browser->setDelegate(ListedFolders());
    browser->reloadColumn(0);
    EXPECT_EQ(browser->rowCount(0), 2);
}

// The daemon may be lost, or its callbacks may arrive, while a column is being filled.
TEST_F(Reloading, BearsAnythingThatHappensInTheMiddleOfAFill) {
    const std::tuple<const char*, std::function<void()>, int, std::string, int> cases[] = {
        {"a newer fill",
         [this] { folders.listing["/Volumes/Disk/docs"] = {"newer.txt"}, browser->reloadColumn(2); }, 2,
         "docs", 1},
        {"the folder goes",
         [this] { folders.listing["/Volumes/Disk"] = {"photos/"}, browser->reloadColumn(1); }, 1, "", 0},
        {"somebody opens another", [this] { click(1, "photos"); }, 2, "photos", 1},
        {"the link is lost", [this] { folders.keepsRows = true, browser->reloadColumn(0); }, 2, "docs", 0},
        {"the browser goes", [this] { browser.reset(); }, 0, "", 0},
    };
    const auto listing = folders.listing;
    for (const auto& [what, happens, lastColumn, chosen, rowsOfFolder] : cases) {
        SCOPED_TRACE(what);
        folders.listing = listing;
        folders.keepsRows = false;
        open({"Disk"});
        folders.meanwhile = happens;
        click(1, "docs");
        if (!browser)
            break;
        EXPECT_EQ(browser->lastColumn(), lastColumn);
        EXPECT_EQ(selected(), chosen);
        EXPECT_EQ(browser->rowCount(2), rowsOfFolder);
    }
}

TEST_F(Reloading, EnablesAndDisablesWithoutChoosing) {
    open({"Disk", "docs", "a.txt"});
    folders.listing["/Volumes/Disk"] = {"-docs/", "photos/", "-old.txt", "plan.txt"};
    browser->reloadColumn(1);
    EXPECT_FALSE(browser->selectedCell(1)->isEnabled());
    EXPECT_EQ(selected(), "docs/a.txt");
    click(1, "photos");
    click(1, "docs");
    EXPECT_EQ(selected(), "photos");

    click(1, "photos");
    click(1, "plan.txt", Qt::ShiftModifier);
    EXPECT_EQ(selected(), "photos plan.txt");
    folders.listing["/Volumes/Disk"] = {"docs/", "photos/", "old.txt", "plan.txt"};
    choices.clear();
    browser->reloadColumn(1);
    EXPECT_EQ(selected(), "photos plan.txt");
    EXPECT_EQ(choices.size(), 0);
}

// Replaces rows by equal to completely different ones, in any order, with duplicates.
TEST(ColumnModel, ShowsWhatIsListedAndLetsRowsBeFollowed) {
    ColumnModel model{[](const KelvaneBrowserCell&) { return QIcon(); }, nullptr};
    const auto shown = [&] {
        std::vector<int> names;
        for (int row = 0; row < model.count(); ++row)
            names.push_back(std::stoi(model.cell(row).getFilePath()));
        return names;
    };
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::vector<int> names(random() % 120);
        std::ranges::generate(names,
                              [&, range = 1 + random() % 200] { return static_cast<int>(random() % range); });
        if (round % 2 == 0)
            std::ranges::sort(names);
        const std::vector<int> before = shown();
        std::vector<QPersistentModelIndex> followed;
        for (int row = 0; row < model.count(); ++row)
            followed.emplace_back(model.index(row));
        BrowserRows rows;
        for (const int name : names)
            rows.emplace_back(std::to_string(name), std::to_string(name));
        model.setRows(std::move(rows));

        ASSERT_EQ(shown(), names);
        std::vector<int> stayed;
        for (std::size_t row = 0; row < before.size(); ++row) {
            if (!followed[row].isValid())
                continue;
            stayed.push_back(before[row]);
            EXPECT_EQ(names[static_cast<std::size_t>(followed[row].row())], before[row]);
        }
        std::vector<int> common;
        std::ranges::sort(stayed);
        std::ranges::set_intersection(std::multiset<int>(before.begin(), before.end()),
                                      std::multiset<int>(names.begin(), names.end()),
                                      std::back_inserter(common));
        EXPECT_EQ(stayed, common);
    }
}

using BrowserPaths = ColumnBrowserTest;

TEST_F(BrowserPaths, LeadToTheColumnThatShowsTheItem) {
    const Volumes volumes{"Disk", {{"Other", "/media/joe/Other"}}};
    open({"Disk", "docs", "a.txt"});
    const std::tuple<const char*, int, const char*> cases[] = {
        {"/", 0, "/Volumes/Disk"},
        {"/Volumes/Other", 0, "/Volumes/Other"},
        {"/docs/a.txt", 2, "/Volumes/Disk/docs/a.txt"},
        {"/Volumes/Disk/docs", 1, "/Volumes/Disk/docs"},
        {"/docs/A.txt", -1, ""},
        {"/photos/a.txt", -1, ""},
        {"/Volumes/Disk/docs/a.txt/further", -1, ""},
        {"/Volumes", -1, ""},
        {"/System/Volumes/Data", -1, ""},
        {"", -1, ""},
    };
    for (const auto& [path, column, filePath] : cases) {
        SCOPED_TRACE(path);
        BrowserRow row;
        EXPECT_EQ(columnForPath(path, *browser, volumes, &row), column);
        EXPECT_EQ(columnForPath(path, *browser, volumes), column);
        EXPECT_EQ(row.isValid() ? browser->cell(row)->getFilePath() : "", filePath);
    }
    EXPECT_EQ(columnToPath(1, *browser), "/Volumes/Disk/docs");
    EXPECT_EQ(columnToPath(-1, *browser), "");
    EXPECT_EQ(columnToPath(3, *browser), "");
    EXPECT_EQ(columnForPath("/old.txt", *browser, volumes), 1);
}

TEST_F(BrowserPaths, OfChangedFilesThatAreNotShownAreNoneOfTheBrowsersBusiness) {
    const PaneDouble pane; // without a daemon
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
