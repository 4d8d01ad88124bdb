#include "PreferencePane/Info/InfoWindowRegistry.h"

#include <algorithm>

namespace kelvane {

void InfoWindowRegistry::showInfoWindowForFileNode(const FileNodeRef& node) {
    const auto shown = std::ranges::find(controllers_, node, &KelvaneInfoWindowController::fileNode);
    if (shown != controllers_.end())
        return (*shown)->show();
    auto controller = std::make_shared<KelvaneInfoWindowController>(prefs_, node);
    controller->setWindowWillClose([this, closed = controller.get()] { windowWillClose(closed); });
    controllers_.push_back(controller);
    controller->awakeFromNib();
}

void InfoWindowRegistry::closeInfoWindows() {
    ofTabs_.closeInfoWindows();
    const Controllers open = controllers_; // a copy, because each one removes itself
    for (const auto& controller : open)
        controller->closeInfoWindows();
}

void InfoWindowRegistry::windowWillClose(const KelvaneInfoWindowController* controller) {
    const auto closed = std::ranges::find(controllers_, controller, &Controllers::value_type::get);
    if (closed == controllers_.end())
        return;
    // The window is still handling its close event, so its destruction is posted.
    prefs_.mainLoop()->post([kept = std::move(*closed)] {});
    controllers_.erase(closed);
}

} // namespace kelvane
