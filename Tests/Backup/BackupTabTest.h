#pragma once

#include "PreferencePane/Backup/BackupTabController.h"
#include "PreferencePane/Backup/ExcludeTable.h"
#include "Tests/Harness/BrowserTabTest.h"

namespace kelvane::tests {

using Paths = Strings;

class BackupTabTest : public BrowserTabTest {
protected:
    BackupTabTest() : BrowserTabTest({"/", "/Volumes/USB"}) {
        for (const char* const name : {"docs/a.txt", "docs/b.txt", "docs/deep/c.txt", "photos/p.jpg"})
            addFile(name);
        daemon.setState("backupState", 26U);
        pane.flags().manualToggleButtonEnable = false;
        observe(KelvaneBackupStateConnectionChangedNotification, [this] {
            tab->enableTabItems(true);
            pane.post(KelvanePrefPaneReadyChangedNotification);
            if (pane.connected())
                changed();
        });
        observe(KelvaneBackupStateChangedNotification, [this] { changed(); });
        tab->enableTabItems(true);
        tab->awakeFromNib();
        show(pane.backupTab());
    }
    ~BackupTabTest() override { pane.state->onEnd(); }

    void setAutomatic(bool isAutomatic) {
        daemon.changeWorld(
            [&](DaemonWorld& world) { world.values.mutableDictionary().set("automaticMode", isAutomatic); });
    }
    void begin(bool isAutomatic) {
        setAutomatic(isAutomatic);
        connect();
    }
    void changed() {
        tab->enableTabItems(true); // The Status tab does this, since it is notified first.
        pane.post(KelvanePrefPaneDaemonStateChangedNotification);
    }
    // Returns the arguments of the calls since the last query.
    Paths asked(std::string_view selector) {
        Paths paths;
        for (const ReceivedCall& call : daemon.calls())
            if (call.selector == selector)
                paths.push_back(call.arguments.front().stringValue());
        daemon.forgetCalls();
        return paths;
    }
    [[nodiscard]] std::string shownView() const {
        return pane.backupTab()->layout()->itemAt(0)->widget()->objectName().toStdString();
    }
    [[nodiscard]] ExcludeTable& table() const { return control<ExcludeTable>("excludeTable"); }

    KelvaneInfoWindowController info{pane};
    std::unique_ptr<KelvaneBackupTabController> tab = KelvaneBackupTabController::create(pane, info);
};

} // namespace kelvane::tests
