#pragma once

#include "Platform/Desktop/QtMainLoop.h"
#include "PreferencePane/Status/StatusTabController.h"
#include "Tests/Harness/TabTest.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QLabel>

namespace kelvane::tests {

// The Restore tab's menu items may query the daemon when they are enabled.
struct StatusPane : PaneDouble {
    using PaneDouble::PaneDouble;
    void enableRestoreTabItems(bool enable) override {
        PaneDouble::enableRestoreTabItems(enable);
        if (enable && whenRestoreIsEnabled)
            std::exchange(whenRestoreIsEnabled, {})();
    }
    std::function<void()> whenRestoreIsEnabled;
};

// The tab in a window, with a private bundle and hand-off path.
class StatusTabTest : public TabTest {
protected:
    StatusTabTest() : TabTest(demoWorld()) {
        pane.lock = std::make_unique<FixedAuthorization>(std::make_shared<QtMainLoop>(), true);
        attach(pane);
        const auto tellState = [this] {
            if (pane.connected())
                pane.post(KelvanePrefPaneDaemonStateChangedNotification);
        };
        observe(KelvaneBackupStateConnectionChangedNotification, [this, tellState] {
            pane.post(KelvanePrefPaneReadyChangedNotification);
            tellState();
        });
        observe(KelvaneBackupStateChangedNotification, tellState);
    }
    ~StatusTabTest() override {
        tab.reset();
        pane.state->onEnd();
    }
    [[nodiscard]] const QWidget& shown() const override { return *tab->view(); }

    // Starts the tab like the pane does: created, awake, in its window, selected.
    void showTab() {
        tab = std::make_unique<KelvaneStatusTabController>(pane, handOffPath);
        tab->view()->resize(640, 560);
        tab->awakeFromNib();
        tab->view()->show();
        tab->didSelectPrefPane();
    }
    [[nodiscard]] QComboBox& modes() const { return control<QComboBox>("daemonModeButton"); }
    // Returns the first letters of the items, in upper case for enabled ones: "EPrd".
    [[nodiscard]] std::string items() const {
        std::string letters;
        for (int row = 0; row < modes().count(); ++row) {
            const bool isEnabled = modes().model()->index(row, 0).flags() & Qt::ItemIsEnabled;
            const QChar letter = modes().itemText(row).front();
            letters += (isEnabled ? letter : letter.toLower()).toLatin1();
        }
        return letters;
    }
    // Chooses an item like a user: opens the list and clicks.
    void choose(int row) const {
        modes().showPopup();
        decide(row);
    }
    void decide(int row) const {
        modes().view()->setCurrentIndex(modes().model()->index(row, 0));
        QTest::keyClick(modes().view(), Qt::Key_Return);
        QCoreApplication::processEvents();
    }
    const std::string handOffPath = folder / "auth";
    StatusPane pane{
        std::make_shared<Bundle>(folder.path(), Dictionary{{"DaemonPath", folder / "daemon.sock"},
                                                           {"CFBundleShortVersionString", "1.2"},
                                                           {"Open Account URL", "%1$@/a?%2$@&%3$@"},
                                                           {"Refer URL", "ex.org/refer"},
                                                           {"UninstallSurveyURL", "ex.org/why"}}),
        loop};
    std::unique_ptr<KelvaneStatusTabController> tab;
};

} // namespace kelvane::tests
