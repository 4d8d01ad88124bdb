#pragma once

#include "Foundation/MainLoop.h"
#include "Platform/Bundle.h"
#include "Platform/Desktop/Authorization/Authorization.h"
#include "Platform/Desktop/Opener.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class QWidget;

// The interface between the settings application and a pane. A pane is a bundle "<name>.prefPane" whose
// plug-in, PlugIns/<CFBundleExecutable>.so, exports the two symbols at the end of this file.
namespace kelvane {

// Incremented with every change of this file or of what it includes.
inline constexpr std::uint32_t paneInterfaceVersion = 2;

// The host's services for a pane. Outlives the pane; main thread only.
class PaneHost {
public:
    virtual ~PaneHost() = default;

    [[nodiscard]] virtual std::shared_ptr<MainLoop> mainLoop() = 0;
    // Creates the kind of lock that the host's user has chosen; each call creates a new one.
    [[nodiscard]] virtual std::unique_ptr<Authorization> makeAuthorization(const RightDefinition& right) = 0;
    [[nodiscard]] virtual Opener& opener() = 0;
    // Ends the host. The pane is unselected first, after its call has returned to the event loop.
    virtual void terminate() = 0;
    // Requested by panes that need more width on systems with narrow windows; the host does nothing.
    virtual void widenWindow(int points) = 0;
};

// A pane as the host drives it, always on the main thread:
//
//   created > awakeFromNib > mainViewDidLoad > (didSelect > willUnselect) any number of times > deleted
//
// The host shows `mainView` and lets it paint before each `didSelect`; it calls `willUnselect` before another
// pane is shown, before its window closes and before the host ends. When one of these throws, the user sees
// the error instead of the pane, which is not selected again.
class Pane {
public:
    Pane() = default;
    virtual ~Pane() = default;
    Pane(const Pane&) = delete;
    Pane& operator=(const Pane&) = delete;

    virtual void awakeFromNib() = 0;
    virtual void mainViewDidLoad() = 0;
    virtual void didSelect() = 0;
    virtual void willUnselect() = 0;

    // Created and owned by the pane, and valid until the pane is deleted. The host adds it to its window and
    // removes it before that.
    [[nodiscard]] virtual QWidget* mainView() = 0;

    // The names of the visible tabs as the user reads them, from left to right; empty for a pane without
    // tabs.
    [[nodiscard]] virtual std::vector<std::string> tabNames() const { return {}; }
    // Returns false when there is no such tab.
    [[nodiscard]] virtual bool selectTab(const std::string& /*name*/) { return false; }
    // Whether the pane shows its contents and no longer waits for them, for example for its daemon.
    [[nodiscard]] virtual bool isReady() const { return true; }
};

// The pane's bundle. "DaemonPath" in its information is the path to use: the one that the host's user gave,
// otherwise the bundle's, otherwise the default.
using PaneBundle = std::shared_ptr<const Bundle>;

} // namespace kelvane

extern "C" {
// The `paneInterfaceVersion` with which the plug-in was built. The host reads it before it calls anything.
[[gnu::visibility("default")]] extern const std::uint32_t kelvanePaneInterfaceVersion;
// Creates a pane, which the host deletes. The pane copies `bundle`.
[[gnu::visibility("default")]] kelvane::Pane* kelvaneMakePane(kelvane::PaneHost& host,
                                                              const kelvane::PaneBundle& bundle);
}
