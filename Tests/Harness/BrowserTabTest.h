#pragma once

#include "FakeDaemon/FakeDaemon.h"
#include "PreferencePane/Browser/ColumnBrowser.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/LocalPane.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QAbstractButton>
#include <QListView>
#include <QTest>
#include <gtest/gtest.h>

namespace kelvane::tests {

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

// A tab with a browser in a window, on a fake daemon, with the volume USB that is a folder of the test's own,
// as the user's home is. Who derives from this owns the tab, passes it the notices of the link, which come
// through the pane as from the real one, and ends the pane's state before the tab goes.
class BrowserTabTest : public testing::Test {
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
        pane.state = std::make_shared<BackupState>(loop, pane.notifications(), pane.bundle());
        pane.state->setWantsStateChangedNotifications();
    }
    ~BrowserTabTest() override {
        daemon.stop();
        EXPECT_TRUE(loop->runUntil([] { return KelvaneSocket::liveThreads() == 0; }));
        loop->runPosted();
    }
    void observe(std::string_view name, const std::function<void()>& heard) {
        observers_.push_back(pane.notifications()->observe(std::string(name), pane.state.get(),
                                                           [heard](const Notification&) { heard(); }));
    }
    void show(QWidget* page) {
        pane.mainView()->layout()->addWidget(page);
        pane.mainView()->resize(900, 500);
        pane.mainView()->show();
    }

    // What the daemon knows, and where.
    void addFile(const std::string& name, bool isBackedUp = true) {
        folder.write("USB/" + name, "");
        daemon.changeWorld(
            [&](DaemonWorld& world) { world.addFile("/Volumes/USB/" + name, false, 1, isBackedUp); });
    }
    void connect() {
        ASSERT_TRUE(daemon.start());
        pane.state->onBegin();
        ASSERT_TRUE(pane.connected());
        ASSERT_TRUE(daemon.waitForPanes(1));
    }
    void poll() { loop->advance(2s); }
    void setState(std::string_view key, const Value& value) {
        daemon.setState(key, value);
        poll();
    }
    template <class Control = QWidget>
    [[nodiscard]] Control& control(const char* name) const {
        auto* const found = pane.mainView()->findChild<Control*>(name);
        if (found == nullptr)
            throw std::runtime_error(std::string("no ") + name);
        return *found;
    }
    void click(const char* name) const { QTest::mouseClick(&control(name), Qt::LeftButton); }
    // What stands there; a placeholder in brackets.
    [[nodiscard]] std::string text(const char* name) const {
        const QString text = control(name).property("text").toString();
        const QVariant placeholder = control(name).property("placeholderText");
        return (text.isEmpty() && placeholder.isValid() ? '[' + placeholder.toString() + ']' : text)
            .toStdString();
    }
    // Of the given ones those that are enabled.
    [[nodiscard]] std::string enabled(const std::vector<const char*>& names) const {
        std::string list;
        for (const char* const name : names)
            if (control(name).isEnabled())
                list += (list.empty() ? "" : " ") + std::string(name);
        return list;
    }

    [[nodiscard]] ColumnBrowser& browser() const { return *pane.mainView()->findChild<ColumnBrowser*>(); }
    // Those of disabled rows in brackets.
    [[nodiscard]] Strings titles(int column) const {
        Strings found;
        for (int row = 0; row < browser().rowCount(column); ++row) {
            const KelvaneBrowserCell& cell = *browser().cell(column, row);
            found.push_back(cell.isEnabled() ? cell.title() : '[' + cell.title() + ']');
        }
        return found;
    }
    // A click on the rows of these titles, each in its column.
    void choose(const Strings& path, Qt::KeyboardModifiers modifiers = {}, int column = 0) {
        for (const std::string& title : path) {
            const Strings all = titles(column);
            const auto row = std::ranges::find(all, title) - all.begin();
            ASSERT_LT(row, std::ssize(all)) << title;
            QListView& view = *browser().columnView(column);
            QTest::mouseClick(view.viewport(), Qt::LeftButton, modifiers,
                              view.visualRect(browser().rowAt(column, static_cast<int>(row))).center());
            ++column;
        }
    }

    const TemporaryFolder folder;
    const EnvironmentVariable home{"HOME", folder.path().c_str()};
    const EnvironmentVariable preferences{"XDG_CONFIG_HOME", folder.path().c_str()};
    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    FakeDaemon daemon{folder / "daemon.sock"};
    LocalPane pane{
        std::make_shared<Bundle>(KELVANE_PANE_FOLDER, Dictionary{{"DaemonPath", folder / "daemon.sock"}}),
        loop, Volumes("System", {{"USB", folder / "USB"}})};

private:
    std::vector<NotificationCenter::Observer> observers_;
};

} // namespace kelvane::tests
