#pragma once

#include "PreferencePane/Info/InfoWindowController.h"

#include <vector>

namespace kelvane {

// The Info windows that show one file each. They stay when the pane is unselected, until somebody closes them
// or the registry goes. Main thread only; `prefs` outlives it.
class InfoWindowRegistry {
public:
    explicit InfoWindowRegistry(const PaneServices& prefs) : prefs_(prefs) {}

    // Brings the window of this very node to the front, or makes one. Two nodes of one path have two windows:
    // each tells what was known when it was asked for.
    void showInfoWindowForFileNode(const FileNodeRef& node);

    using Controllers = std::vector<std::shared_ptr<KelvaneInfoWindowController>>;
    [[nodiscard]] const Controllers& controllers() const { return controllers_; }

private:
    void windowWillClose(const KelvaneInfoWindowController* controller);

    const PaneServices& prefs_;
    Controllers controllers_;
};

} // namespace kelvane
