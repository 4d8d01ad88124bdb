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

// What the settings application and a pane know of each other. A pane is a bundle "<name>.prefPane" whose
// plug-in, PlugIns/<CFBundleExecutable>.so, exports the two names at the end of this file.
namespace kelvane {

// Counts up with every change of this file or of what it includes.
inline constexpr std::uint32_t paneInterfaceVersion = 2;

// What the host does for a pane. Outlives it; main thread only.
class PaneHost {
public:
    virtual ~PaneHost() = default;

    [[nodiscard]] virtual std::shared_ptr<MainLoop> mainLoop() = 0;
    // The lock that the user of the host has chosen, one for each call.
    [[nodiscard]] virtual std::unique_ptr<Authorization> makeAuthorization(const RightDefinition& right) = 0;
    [[nodiscard]] virtual Opener& opener() = 0;
    // Ends the host: the pane is unselected first, but not before the pane's call has returned to the event
    // loop.
    virtual void terminate() = 0;
    // Asked for by panes that need more room on systems with narrow windows; here they have it.
    virtual void widenWindow(int points) = 0;
};

// A pane as the host drives it, all on the main thread:
//
//   made > awakeFromNib > mainViewDidLoad > (didSelect > willUnselect) any number of times > deleted
//
// The host shows `mainView` and lets it be painted before each `didSelect`; it calls `willUnselect` before
// another pane is shown, before its window closes and before it ends. What any of them throws is shown to the
// user instead of the pane, which is then not selected again.
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

    // Made with the pane, owned by it and there until it goes; the host puts it into its window and takes it
    // out again before.
    [[nodiscard]] virtual QWidget* mainView() = 0;

    // The tabs that are shown now, from the left, by the names that users see; none for a pane without tabs.
    [[nodiscard]] virtual std::vector<std::string> tabNames() const { return {}; }
    // False when there is no such tab.
    [[nodiscard]] virtual bool selectTab(const std::string& /*name*/) { return false; }
    // Whether it shows what it has to show and not that it is still waiting for it, for example for its
    // daemon.
    [[nodiscard]] virtual bool isReady() const { return true; }
};

// The pane's bundle. "DaemonPath" in its information is the one to use: what the user of the host named, else
// what the bundle says, else the usual place.
using PaneBundle = std::shared_ptr<const Bundle>;

} // namespace kelvane

extern "C" {
// `paneInterfaceVersion` of the plug-in's own build. The host reads it before it calls anything.
[[gnu::visibility("default")]] extern const std::uint32_t kelvanePaneInterfaceVersion;
// A new pane, which the host deletes. `bundle` is to be copied from.
[[gnu::visibility("default")]] kelvane::Pane* kelvaneMakePane(kelvane::PaneHost& host,
                                                              const kelvane::PaneBundle& bundle);
}
