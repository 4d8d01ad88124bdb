#pragma once

#include "Foundation/MainLoop.h"

#include <chrono>
#include <functional>
#include <limits>
#include <memory>

namespace kelvane {

// Limits the reloads of a browser's columns by their cost. A change reloads at once when the time since the
// last immediate reload is more than twice what that reload took; otherwise the reload is delayed to the next
// turn of the main loop, where one reload covers all delayed changes. A change in another column first runs
// the delayed reload.
//
// The column given is the one that shows the changed folder; the column to its right, which lists the
// folder's contents, is reloaded. Main thread only.
class ReloadThrottle {
public:
    using Seconds = std::chrono::duration<double>;
    using Clock = std::function<Seconds()>; // since a fixed moment
    using Reload = std::function<void(int column)>;

    ReloadThrottle(std::shared_ptr<MainLoop> mainLoop, Reload reloadColumn, Clock clock);

    // -1: no column shows the folder.
    void columnChanged(int column);

    [[nodiscard]] static Seconds steadyNow();

private:
    void reloadColumnTimer();
    void reloadNow(int column);

    const std::shared_ptr<MainLoop> mainLoop_;
    const Reload reloadColumn_;
    const Clock clock_;
    int embargoedColumn_ = -1; // -1: no delayed reload
    Seconds datePrevPathChanged_{-std::numeric_limits<double>::infinity()};
    // The negated duration of the last immediate reload, so never positive: it is compared with the time of
    // that reload relative to now. Zero after a delayed reload, so that the next change reloads at once.
    Seconds timeForReloadColumn_{0};
    Timer embargoedReloadColumnTimer_;
};

} // namespace kelvane
