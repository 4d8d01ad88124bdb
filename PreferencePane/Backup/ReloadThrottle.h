#pragma once

#include "Foundation/MainLoop.h"

#include <chrono>
#include <functional>
#include <limits>
#include <memory>

namespace kelvane {

// Holds the reloads of a browser's columns to what they cost: a change reloads at once when more than twice
// the time that the last such reload took has passed since, else it is held back to the next turn of the main
// loop, where it reloads once for all changes held back. Changes of another column let the one held back go
// first.
//
// A column here is the one that shows the changed folder; what is reloaded is the one to the right of it,
// which lists what is in it. Main thread only.
class ReloadThrottle {
public:
    using Seconds = std::chrono::duration<double>;
    using Clock = std::function<Seconds()>; // since a moment that does not change
    using Reload = std::function<void(int column)>;

    ReloadThrottle(std::shared_ptr<MainLoop> mainLoop, Reload reloadColumn, Clock clock);

    // -1: no column shows it.
    void columnChanged(int column);

    [[nodiscard]] static Seconds steadyNow();

private:
    void reloadColumnTimer();
    void reloadNow(int column);

    const std::shared_ptr<MainLoop> mainLoop_;
    const Reload reloadColumn_;
    const Clock clock_;
    int embargoedColumn_ = -1; // none is held back
    Seconds datePrevPathChanged_{-std::numeric_limits<double>::infinity()};
    // What the last immediate reload took, and never positive: it is compared with how long ago that was, as
    // a time before now. Zero after one that was held back, so that the next change reloads at once.
    Seconds timeForReloadColumn_{0};
    Timer embargoedReloadColumnTimer_;
};

} // namespace kelvane
