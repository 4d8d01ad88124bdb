#include "PreferencePane/Backup/ReloadThrottle.h"

#include <utility>

namespace kelvane {

ReloadThrottle::ReloadThrottle(std::shared_ptr<MainLoop> mainLoop, Reload reloadColumn, Clock clock)
    : mainLoop_(std::move(mainLoop)), reloadColumn_(std::move(reloadColumn)), clock_(std::move(clock)) {}

ReloadThrottle::Seconds ReloadThrottle::steadyNow() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

void ReloadThrottle::columnChanged(int column) {
    const Seconds elapsed = datePrevPathChanged_ - clock_();
    if (embargoedColumn_ != -1 && embargoedColumn_ != column)
        reloadColumnTimer();
    if (column < 0)
        return;
    if (2 * timeForReloadColumn_ > elapsed)
        return reloadNow(column);
    if (embargoedColumn_ == column)
        return;
    embargoedColumn_ = column;
    // Twice the recorded time is never positive, so this runs on the next turn.
    embargoedReloadColumnTimer_ = mainLoop_->schedule(std::chrono::milliseconds(0), MainLoop::Repeat::Once,
                                                      [this] { reloadColumnTimer(); });
}

void ReloadThrottle::reloadNow(int column) {
    const Seconds start = clock_();
    reloadColumn_(column + 1);
    datePrevPathChanged_ = clock_();
    timeForReloadColumn_ = start - datePrevPathChanged_;
    embargoedColumn_ = -1;
    embargoedReloadColumnTimer_.stop();
}

void ReloadThrottle::reloadColumnTimer() {
    embargoedReloadColumnTimer_.stop();
    if (embargoedColumn_ == -1)
        return;
    reloadColumn_(embargoedColumn_ + 1);
    timeForReloadColumn_ = Seconds(0);
    embargoedColumn_ = -1;
}

} // namespace kelvane
