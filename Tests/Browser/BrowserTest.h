#pragma once

#include "Platform/Desktop/Icons.h"
#include "PreferencePane/Browser/BrowserPaths.h"
#include "PreferencePane/Browser/ColumnBrowser.h"

#include <QApplication>
#include <QListView>
#include <QSignalSpy>
#include <QTest>
#include <functional>
#include <gtest/gtest.h>
#include <map>

namespace kelvane::tests {

// Lists folders that the test defines: "docs/" is a folder, "-old" a disabled file.
class ListedFolders : public ColumnBrowserDelegate {
public:
    std::optional<BrowserRows> createRowsForColumn(ColumnBrowser& browser, int column) override {
        const std::string folder = column == 0 ? "/Volumes" : columnToPath(column - 1, browser);
        ++fills;
        BrowserRows rows = rowsOf(folder);
        if (meanwhile)
            std::exchange(meanwhile, nullptr)();
        return keepsRows ? std::nullopt : std::optional(std::move(rows));
    }
    IconHandle imageForCell(const KelvaneBrowserCell& cell) override {
        ++imagesAskedFor[cell.title()];
        return cell.title() == "file" ? nullptr : iconHandle(icon_);
    }

    ListedFolders() { icon_.fill(Qt::gray); }

    std::map<std::string, std::vector<std::string>> listing;
    std::function<void()> meanwhile; // runs once while a column is being filled
    bool keepsRows = false;
    int fills = 0;
    std::map<std::string, int> imagesAskedFor;

private:
    [[nodiscard]] BrowserRows rowsOf(const std::string& folder) {
        BrowserRows rows;
        for (const std::string& line : listing[folder]) {
            const std::string name =
                line.substr(line.starts_with('-'), line.find('/') - line.starts_with('-'));
            rows.emplace_back(name, folder + '/' + name);
            rows.back().setLeaf(!line.ends_with('/'));
            rows.back().setEnabled(!line.starts_with('-'));
        }
        return rows;
    }

    QPixmap icon_{16, 16};
};

// A visible browser with the keyboard focus in its first column.
class ColumnBrowserTest : public testing::Test {
protected:
    void SetUp() override {
        folders.listing = {{"/Volumes", {"Disk/", "Other/"}},
                           {"/Volumes/Disk", {"docs/", "photos/", "-old.txt", "notes.txt", "plan.txt"}},
                           {"/Volumes/Disk/docs", {"a.txt", "b.txt", "c.txt", "deep/"}},
                           {"/Volumes/Disk/docs/deep", {"end.txt"}},
                           {"/Volumes/Disk/photos", {"p.jpg"}}};
        browser->setDelegate(folders);
        browser->resize(900, 300);
        browser->show();
        QApplication::setActiveWindow(browser.get());
        browser->columnView(0)->setFocus();
        browser->reloadColumn(0);
    }

    [[nodiscard]] QModelIndex index(int column, const std::string& title) const {
        for (int row = 0; row < browser->rowCount(column); ++row)
            if (browser->cell(column, row)->title() == title)
                return browser->rowAt(column, row);
        return {};
    }
    void click(int column, const std::string& title, Qt::KeyboardModifiers modifiers = {}) {
        QListView& view = *browser->columnView(column);
        view.scrollTo(index(column, title));
        QTest::mouseClick(view.viewport(), Qt::LeftButton, modifiers,
                          view.visualRect(index(column, title)).center());
    }
    // Clicks in each column, from the left.
    void open(const std::vector<std::string>& titles) {
        for (int column = 0; const std::string& title : titles)
            click(column++, title);
        choices.clear();
    }
    void change(const BrowserRow& row, const std::function<void(KelvaneBrowserCell&)>& change) {
        KelvaneBrowserCell cell = *browser->cell(row);
        change(cell);
        browser->setCell(row, cell);
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
        QTest::keyClick(QApplication::focusWidget(), key, modifiers);
    }
    // "docs/a.txt docs/b.txt": on the volume "Disk".
    [[nodiscard]] std::string selected() const {
        std::string text;
        for (const std::string& path : browser->selectedFilePaths())
            text += (text.empty() ? "" : " ") +
                    path.substr(std::min(path.size(), std::string("/Volumes/Disk/").size()));
        return text;
    }
    [[nodiscard]] int columnWithKeyboard() const {
        int column = browser->lastColumn();
        while (column >= 0 && !browser->columnView(column)->hasFocus())
            --column;
        return column;
    }

    ListedFolders folders;
    std::unique_ptr<ColumnBrowser> browser = std::make_unique<ColumnBrowser>();
    QSignalSpy choices{browser.get(), &ColumnBrowser::chosen};
};

} // namespace kelvane::tests
