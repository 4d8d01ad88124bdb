#pragma once

#include "PreferencePane/Restore/RestoreTabController.h"
#include "Tests/Harness/BrowserTabTest.h"

#include <QComboBox>
#include <QFileDialog>

namespace kelvane::tests {

// A Restore tab whose daemon has backed up three disks, one of which is not mounted.
class RestoreTabTest : public BrowserTabTest {
protected:
    RestoreTabTest()
        : BrowserTabTest(
              {"/", "/home", "/Volumes/USB", "/Volumes/USB/docs", "/Volumes/Gone", "/Volumes/Gone/old"}) {
        for (const char* const name : {"docs/a.txt", "docs/b.txt"})
            addFile(name);
        daemon.changeWorld([](DaemonWorld& world) { world.addFile("/home/h.txt", false, 1, true); });
        observe(KelvaneBackupStateConnectionChangedNotification, [this] {
            tab->enableTabItems(true);
            pane.post(KelvanePrefPaneReadyChangedNotification);
        });
        observe(KelvaneBackupStateChangedNotification, [this] {
            tab->enableTabItems(true); // The Status tab does this, since it is notified first.
            pane.post(KelvanePrefPaneDaemonStateChangedNotification);
        });
        tab->enableTabItems(true);
        tab->awakeFromNib();
        static_cast<QVBoxLayout*>(pane.mainView()->layout())
            ->addWidget(tab->progressView(), 0, Qt::AlignTop | Qt::AlignLeft);
        show(pane.restoreTab());
    }
    ~RestoreTabTest() override { pane.state->onEnd(); }

    void expectLoss() {
        waitForLoss();
        EXPECT_TRUE(control("disabledRestoreView").isVisible());
    }
    [[nodiscard]] QFileDialog* panel() const { return pane.mainView()->findChild<QFileDialog*>(); }
    void pressRestore(int destination) {
        control<QComboBox>("destinationButton").setCurrentIndex(destination);
        click("restoreButton");
    }

    KelvaneInfoWindowController info{pane};
    std::unique_ptr<KelvaneRestoreTabController> tab =
        std::make_unique<KelvaneRestoreTabController>(pane, info);
};

} // namespace kelvane::tests
