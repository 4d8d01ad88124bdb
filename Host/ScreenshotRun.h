#pragma once

#include "Host/AfterPaint.h"
#include "Host/Panes/PaneLife.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvane::host {

// Saves a picture of the window for each tab of a pane as "<tab>.png", or one "<title>.png" without tabs,
// when the pane is ready or after 10 s. Main thread only.
class ScreenshotRun {
public:
    // Prints each picture's path to standard output and errors to standard error. `finished` gets the exit
    // status.
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
    std::vector<std::string> tabs_; // the remaining ones, in reverse order
    std::unique_ptr<AfterPaint> painted_;
    Timer timer_;
};

} // namespace kelvane::host
