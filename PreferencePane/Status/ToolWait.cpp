#include "PreferencePane/Status/ToolWait.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QSocketNotifier>
#include <QTimer>
#include <optional>
#include <poll.h>

namespace kelvane {
namespace {

constexpr std::chrono::milliseconds endTimeout{1000}; // for an application that was told to end

} // namespace

bool waitUntil(const std::function<bool()>& isOver, const ChildProcess& process) {
    if (isOver())
        return true;
    QEventLoop loop;
    const auto look = [&] {
        if (isOver())
            loop.quit();
    };
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, look);
    timer.start(checkInterval);
    std::optional<QSocketNotifier> end;
    if (process.descriptor() >= 0) {
        end.emplace(process.descriptor(), QSocketNotifier::Read);
        QObject::connect(&*end, &QSocketNotifier::activated, &loop, look);
    }
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    // The event loop does not run in an application that is about to end.
    const QDeadlineTimer deadline(endTimeout);
    while (!isOver() && !deadline.hasExpired()) {
        pollfd ended{process.descriptor(), POLLIN, 0};
        ::poll(&ended, 1, static_cast<int>(checkInterval.count()));
    }
    return isOver();
}

} // namespace kelvane
