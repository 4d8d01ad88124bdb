#include "PreferencePane/Status/ToolWait.h"

#include <QEventLoop>
#include <QSocketNotifier>
#include <QTimer>
#include <optional>
#include <poll.h>

namespace kelvane {

void waitUntil(const std::function<bool()>& isOver, const ChildProcess& process) {
    if (isOver())
        return;
    QEventLoop loop;
    const auto look = [&] {
        if (isOver())
            loop.quit();
    };
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, look);
    timer.start(lookInterval);
    std::optional<QSocketNotifier> end;
    if (process.descriptor() >= 0) {
        end.emplace(process.descriptor(), QSocketNotifier::Read);
        QObject::connect(&*end, &QSocketNotifier::activated, &loop, look);
    }
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    // In an application that is about to end, no event loop runs any more.
    while (!isOver()) {
        pollfd ended{process.descriptor(), POLLIN, 0};
        ::poll(&ended, 1, static_cast<int>(lookInterval.count()));
    }
}

} // namespace kelvane
