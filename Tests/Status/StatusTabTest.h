#pragma once

#include "FakeDaemon/FakeDaemon.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "PreferencePane/Status/StatusTabController.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/PaneDouble.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QComboBox>
#include <QLabel>
#include <QTest>
#include <gtest/gtest.h>

namespace kelvane::tests {

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

// Restore's items may ask the daemon when they are enabled.
struct StatusPane : PaneDouble {
    using PaneDouble::PaneDouble;
    void enableRestoreTabItems(bool enable) override {
        PaneDouble::enableRestoreTabItems(enable);
        if (enable && whenRestoreIsEnabled)
            std::exchange(whenRestoreIsEnabled, {})();
    }
    std::function<void()> whenRestoreIsEnabled;
};

// The tab in a window, on a fake daemon, with preferences, a bundle and a hand-off path of its own. The pane
// passes the notices of its BackupState on as the real one does.
class StatusTabTest : public testing::Test {
protected:
    StatusTabTest() {
        pane.lock = std::make_unique<FixedAuthorization>(std::make_shared<QtMainLoop>(), true);
        pane.state = std::make_shared<BackupState>(loop, pane.notifications(), pane.bundle());
        pane.state->setWantsStateChangedNotifications();
        connectionObserver_ = passOn(KelvaneBackupStateConnectionChangedNotification);
        stateObserver_ = passOn(KelvaneBackupStateChangedNotification);
    }
    ~StatusTabTest() override {
        tab.reset();
        pane.state->onEnd();
        daemon.stop();
        EXPECT_TRUE(loop->runUntil([] { return KelvaneSocket::liveThreads() == 0; }));
        loop->runPosted();
    }

    // As the pane begins: made, awake, in its window, selected.
    void showTab() {
        tab = std::make_unique<KelvaneStatusTabController>(pane, handOffPath);
        tab->view()->resize(640, 560);
        tab->awakeFromNib();
        tab->view()->show();
        tab->didSelectPrefPane();
    }
    void connect() {
        ASSERT_TRUE(daemon.start());
        pane.state->onBegin();
        ASSERT_TRUE(pane.state->connected());
        ASSERT_TRUE(daemon.waitForPanes(1));
    }
    void loseDaemon() {
        daemon.stop();
        ASSERT_TRUE(loop->runUntil([this] { return !pane.connected(); }));
    }
    void poll() { loop->advance(2s); }
    void setState(std::string_view key, const Value& value) {
        daemon.setState(key, value);
        poll();
    }

    // A control that is there, by the name it has in the form.
    template <class Control = QWidget>
    [[nodiscard]] Control& control(const char* name) const {
        return *tab->view()->findChild<Control*>(name);
    }
    [[nodiscard]] std::string text(const char* label) const {
        return control<QLabel>(label).text().toStdString();
    }
    [[nodiscard]] QComboBox& modes() const { return control<QComboBox>("daemonModeButton"); }
    // The items by their first letters, large where they can be chosen: "EPrd".
    [[nodiscard]] std::string items() const {
        std::string letters;
        for (int row = 0; row < modes().count(); ++row) {
            const bool isEnabled = modes().model()->index(row, 0).flags() & Qt::ItemIsEnabled;
            const QChar letter = modes().itemText(row).front();
            letters += (isEnabled ? letter : letter.toLower()).toLatin1();
        }
        return letters;
    }
    // As a person does: opens the list and decides.
    void choose(int row) const {
        modes().showPopup();
        decide(row);
    }
    void decide(int row) const {
        modes().view()->setCurrentIndex(modes().model()->index(row, 0));
        QTest::keyClick(modes().view(), Qt::Key_Return);
        QCoreApplication::processEvents();
    }
    void click(const char* name) const {
        QWidget& clicked = control(name);
        QTest::mouseClick(&clicked, Qt::LeftButton, {}, {10, clicked.height() / 2});
    }
    [[nodiscard]] QMessageBox* sheet() const { return tab->view()->findChild<QMessageBox*>(); }
    // Presses the sheet's button of that text, which must be there, and waits until all is done.
    void answer(const char* button) const {
        const QPointer<QMessageBox> answered = sheet();
        ASSERT_TRUE(answered);
        for (QAbstractButton* const candidate : answered->buttons())
            if (candidate->text() == button)
                candidate->click();
        ASSERT_TRUE(runUntil([&] { return !answered; })) << button;
        QCoreApplication::processEvents();
    }

    const TemporaryFolder folder;
    const EnvironmentVariable preferences{"XDG_CONFIG_HOME", folder.path().c_str()};
    const std::string handOffPath = folder / "auth";
    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    FakeDaemon daemon{folder / "daemon.sock", demoWorld()};
    StatusPane pane{
        std::make_shared<Bundle>(folder.path(), Dictionary{{"DaemonPath", folder / "daemon.sock"},
                                                           {"CFBundleShortVersionString", "1.2"},
                                                           {"Open Account URL", "%1$@/a?%2$@&%3$@"},
                                                           {"UninstallSurveyURL", "ex.org/why"}}),
        loop};
    std::unique_ptr<KelvaneStatusTabController> tab;

private:
    NotificationCenter::Observer passOn(std::string_view notification) {
        return pane.notifications()->observe(
            std::string(notification), pane.state.get(), [this, notification](const Notification&) {
                if (notification == KelvaneBackupStateConnectionChangedNotification)
                    pane.post(KelvanePrefPaneReadyChangedNotification);
                if (pane.connected())
                    pane.post(KelvanePrefPaneDaemonStateChangedNotification);
            });
    }

    NotificationCenter::Observer connectionObserver_;
    NotificationCenter::Observer stateObserver_;
};

} // namespace kelvane::tests
