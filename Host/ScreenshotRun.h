#pragma once

#include "Host/AfterPaint.h"
#include "Host/Panes/PaneLife.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvane::host {

// Takes a picture of the window with each tab of a pane, "<tab>.png", or one "<title>.png" where there are no
// tabs, once the pane is ready or has been waited for long enough. Main thread only.
class ScreenshotRun {
public:
    // Each picture's path goes to standard output, what goes wrong to standard error. `finished` gets the
    // program's status.
    ScreenshotRun(QWidget& window, PaneLife& life, std::string folder, MainLoop& loop,
                  std::function<void(int status)> finished);
    ScreenshotRun(const ScreenshotRun&) = delete;
    ScreenshotRun& operator=(const ScreenshotRun&) = delete;

private:
    using Clock = std::chrono::steady_clock;

    void waitForPane();
    void showNext();
    void take(const std::string& name);

    QWidget& window_;
    PaneLife& life_;
    const std::string folder_;
    MainLoop& loop_;
    const std::function<void(int status)> finished_;
    const Clock::time_point deadline_;
    std::vector<std::string> tabs_; // that are still to come, the last one first
    std::unique_ptr<AfterPaint> painted_;
    Timer timer_;
};

} // namespace kelvane::host
