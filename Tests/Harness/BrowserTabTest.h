#pragma once

#include "PreferencePane/Browser/ColumnBrowser.h"
#include "Tests/Harness/LocalPane.h"
#include "Tests/Harness/TabTest.h"

#include <QListView>

namespace kelvane::tests {

// A tab with a browser in a window; the volume USB is a folder of the test, and so is the user's home.
class BrowserTabTest : public TabTest {
protected:
    explicit BrowserTabTest(const Strings& backedUpFolders) {
        std::filesystem::create_directories(folder / "USB");
        std::filesystem::create_directories(folder / "Desktop");
        for (const std::string& path : backedUpFolders)
            daemon.changeWorld([&](DaemonWorld& world) {
                if (path == "/" || path.rfind('/') == std::string("/Volumes").size())
                    world.volumes.push_back(path);
                world.addFile(path, true, 0, true);
            });
        attach(pane);
    }
    [[nodiscard]] const QWidget& shown() const override { return *pane.mainView(); }
    void show(QWidget* page) {
        pane.mainView()->layout()->addWidget(page);
        pane.mainView()->resize(900, 500);
        pane.mainView()->show();
    }

    // Adds a file to the daemon's answers.
    void addFile(const std::string& name, bool isBackedUp = true) {
        folder.write("USB/" + name, "");
        daemon.changeWorld(
            [&](DaemonWorld& world) { world.addFile("/Volumes/USB/" + name, false, 1, isBackedUp); });
    }
    // Those of `names` that are enabled.
    [[nodiscard]] std::string enabled(const std::vector<const char*>& names) const {
        std::string list;
        for (const char* const name : names)
            if (control(name).isEnabled())
                list += (list.empty() ? "" : " ") + std::string(name);
        return list;
    }

    [[nodiscard]] ColumnBrowser& browser() const { return *pane.mainView()->findChild<ColumnBrowser*>(); }
    // Titles of disabled rows are in brackets.
    [[nodiscard]] Strings titles(int column) const {
        Strings found;
        for (int row = 0; row < browser().rowCount(column); ++row) {
            const KelvaneBrowserCell& cell = *browser().cell(column, row);
            found.push_back(cell.isEnabled() ? cell.title() : '[' + cell.title() + ']');
        }
        return found;
    }
    [[nodiscard]] int row(int column, const std::string& title) const {
        const Strings all = titles(column);
        const auto found = std::ranges::find(all, title);
        if (found == all.end())
            throw std::runtime_error("no row " + title);
        return static_cast<int>(found - all.begin());
    }
    // Clicks on the rows with these titles, each in its column.
    void choose(const Strings& path, Qt::KeyboardModifiers modifiers = {}, int column = 0) {
        for (const std::string& title : path) {
            QListView& view = *browser().columnView(column);
            const BrowserRow clicked = browser().rowAt(column, row(column, title));
            QTest::mouseClick(view.viewport(), Qt::LeftButton, modifiers, view.visualRect(clicked).center());
            ++column;
        }
    }

    const EnvironmentVariable home{"HOME", folder.path().c_str()};
    LocalPane pane{
        std::make_shared<Bundle>(KELVANE_PANE_FOLDER, Dictionary{{"DaemonPath", folder / "daemon.sock"}}),
        loop, Volumes("System", {{"USB", folder / "USB"}})};
};

} // namespace kelvane::tests
