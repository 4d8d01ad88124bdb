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

// For work that has to end before its caller goes on: for as long as this lives, a sheet shows that the
// program is busy and offers to cancel, no other window takes input, and the main loop's timers and tasks
// wait. The sheet belongs to the window that holds the parent, and its title is the pane's. Main thread
// only.
class BusySheet {
public:
    BusySheet(QWidget& parent, MainLoop& mainLoop, const QString& message, const QString& cancel);
    ~BusySheet();
    BusySheet(const BusySheet&) = delete;
    BusySheet& operator=(const BusySheet&) = delete;

    enum class End { Finished, Cancelled, ApplicationEnds };
    // Works for at most that long; true when all is done.
    using Step = std::function<bool(std::chrono::milliseconds atMost)>;
    // Step by step to the end, painting in between; in the last two cases the work is left as it is.
    [[nodiscard]] End run(const Step& step) const;
    // Until the first call the bar shows only that there is work.
    void showProgress(std::size_t done, std::size_t total) const;

private:
    class Sheet;

    const std::shared_ptr<void> hold_;
    const QPointer<QWidget> focused_;
    std::vector<QPointer<QWidget>> disabled_;
    const QPointer<Sheet> sheet_;
};

// Calls `work` with each number from 0 to `count` - 1 until it returns false. After 0.3 s a sheet shows the
// progress and offers to cancel. Returns how many calls returned true. Main thread only.
[[nodiscard]] std::size_t workShowingProgress(PaneServices& pane, const std::string& message,
                                              std::size_t count,
                                              const std::function<bool(std::size_t)>& work);

} // namespace kelvane
