#pragma once

#include "Foundation/MainLoop.h"

#include <QPointer>
#include <QWidget>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvane {

class PaneServices;

// For work that must finish before its caller continues. While this object lives, a sheet shows that the
// program is busy and offers to cancel, other windows accept no input, and the main loop's timers and tasks
// are held. The sheet belongs to the window of the parent and has the pane's title. Main thread only.
class BusySheet {
public:
    BusySheet(QWidget& parent, MainLoop& mainLoop, const QString& message, const QString& cancel);
    ~BusySheet();
    BusySheet(const BusySheet&) = delete;
    BusySheet& operator=(const BusySheet&) = delete;

    enum class End { Finished, Cancelled, ApplicationEnds };
    // Works for at most that time; returns true when finished.
    using Step = std::function<bool(std::chrono::milliseconds atMost)>;
    // Runs the steps to the end and paints between them; in the last two cases the work is left unfinished.
    [[nodiscard]] End run(const Step& step) const;
    // Before the first call the bar is indeterminate.
    void showProgress(std::size_t done, std::size_t total) const;

private:
    class Sheet;

    const std::shared_ptr<void> hold_;
    const QPointer<QWidget> focused_;
    std::vector<QPointer<QWidget>> disabled_;
    const QPointer<Sheet> sheet_;
};

// Calls `work` with each number from 0 to `count` - 1 until it returns false. After 0.3 s a sheet shows the
// progress and offers to cancel. Returns the number of calls that returned true. Main thread only.
[[nodiscard]] std::size_t workShowingProgress(PaneServices& pane, const std::string& message,
                                              std::size_t count,
                                              const std::function<bool(std::size_t)>& work);

} // namespace kelvane
