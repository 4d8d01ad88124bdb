#include "LocalDaemon/State/DaemonObserver.h"

namespace kelvane {

void DaemonObservers::add(const std::shared_ptr<DaemonObserver>& pane) {
    const std::scoped_lock guard(mutex_);
    std::erase_if(panes_, [](const auto& each) { return each.expired(); });
    panes_.push_back(pane);
}

void DaemonObservers::clear() {
    const std::scoped_lock guard(mutex_);
    panes_.clear();
}

void DaemonObservers::tell(const std::function<void(DaemonObserver&)>& what) const {
    const std::scoped_lock guard(mutex_);
    for (const auto& each : panes_)
        if (const auto pane = each.lock())
            what(*pane);
}

} // namespace kelvane
