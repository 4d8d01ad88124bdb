#pragma once

#include "Common/ClientTarget.h"
#include "PreferencePane/PaneController.h"

namespace kelvane {

// Receives the daemon's calls on the main thread. The link holds it weakly; the controller owns it.
class ComKelvanePreferencePanePref::ClientProtocol : public ClientTarget {
public:
    explicit ClientProtocol(ComKelvanePreferencePanePref& controller) : controller_(controller) {}

    void fileChanged(const Value& path) override { controller_.fileChanged(path.stringValue()); }
    void folderChanged(const Value& path) override { controller_.folderChanged(path.stringValue()); }
    void stateChanged(std::uint32_t state) override { controller_.stateChanged(state); }
    void setAlertString(const Value& alert) override { controller_.setAlertString(alert.stringValue()); }

    void filesChanged(const Value& paths) override {
        for (const Value& path : paths.array())
            fileChanged(path);
    }
    void foldersChanged(const Value& paths) override {
        for (const Value& path : paths.array())
            folderChanged(path);
    }
    void statesChanged(const Value& states) override {
        for (const Value& state : states.array())
            stateChanged(state.uint32Value());
    }
    void setAlertStrings(const Value& alerts) override {
        for (const Value& alert : alerts.array())
            setAlertString(alert);
    }

private:
    ComKelvanePreferencePanePref& controller_;
};

} // namespace kelvane
