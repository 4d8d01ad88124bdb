#pragma once

#include "Foundation/MainLoop.h"

#include <QPointer>
#include <QWidget>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

class QDialog;

namespace kelvane {

// For work that has to be through before its caller goes on: for as long as this lives, a sheet that cannot
// be closed says that the program is busy, none of its windows takes orders, and the main loop's timers and
// tasks wait. Main thread only.
class BusySheet {
public:
    BusySheet(QWidget& window, MainLoop& mainLoop, const QString& message);
    ~BusySheet();
    BusySheet(const BusySheet&) = delete;
    BusySheet& operator=(const BusySheet&) = delete;

    // Goes on for no longer than that; true when it is over.
    using Step = std::function<bool(std::chrono::milliseconds atMost)>;
    // Step by step to the end, and windows are painted between them. False when the application is about to
    // end, and the work is not worth waiting for.
    [[nodiscard]] bool run(const Step& step) const;

private:
    const std::shared_ptr<void> hold_;
    const QPointer<QWidget> focused_;
    std::vector<QPointer<QWidget>> disabled_;
    const QPointer<QDialog> sheet_;
};

} // namespace kelvane
