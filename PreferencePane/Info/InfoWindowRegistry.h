#pragma once

#include "PreferencePane/Info/InfoWindowController.h"
#include "PreferencePane/Services/TabControllers.h"

#include <vector>

namespace kelvane {

// All Info windows of a pane: the one that the tabs share, and those for one file each, which exist until
// they are closed. Main thread only; `prefs` must outlive it.
class InfoWindowRegistry : public InfoWindows {
public:
    explicit InfoWindowRegistry(const PaneServices& prefs) : prefs_(prefs), ofTabs_(prefs) {}

    // Lives as long as this registry.
    [[nodiscard]] KelvaneInfoWindowController& ofTabs() { return ofTabs_; }
    void closeInfoWindows() override;

    // Raises the window of this node, or creates one. Two nodes of the same path have two windows: each shows
    // what was known when it was opened.
    void showInfoWindowForFileNode(const FileNodeRef& node);

    using Controllers = std::vector<std::shared_ptr<KelvaneInfoWindowController>>;
    [[nodiscard]] const Controllers& controllers() const { return controllers_; }

private:
    void windowWillClose(const KelvaneInfoWindowController* controller);

    const PaneServices& prefs_;
    KelvaneInfoWindowController ofTabs_;
    Controllers controllers_;
};

} // namespace kelvane
