#pragma once

#include "PreferencePane/Info/InfoWindowController.h"
#include "PreferencePane/Services/TabControllers.h"

#include <vector>

namespace kelvane {

// All Info windows of a pane: the one that its tabs point at one file after the other, and those that show
// one file each until somebody closes them. Main thread only; `prefs` outlives it.
class InfoWindowRegistry : public InfoWindows {
public:
    explicit InfoWindowRegistry(const PaneServices& prefs) : prefs_(prefs), ofTabs_(prefs) {}

    // Stays as long as this.
    [[nodiscard]] KelvaneInfoWindowController& ofTabs() { return ofTabs_; }
    void closeInfoWindows() override;

    // Brings the window of this very node to the front, or makes one. Two nodes of one path have two windows:
    // each tells what was known when it was asked for.
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
