#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>
#include <chrono>

namespace kelvane::tests {

// Processes Qt's events until `condition` holds; returns false when it does not within `limit`.
template <class Condition>
[[nodiscard]] bool runUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const QDeadlineTimer deadline(limit);
    QTimer pulse; // a condition may become true without an event
    pulse.start(std::chrono::milliseconds(5));
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace kelvane::tests
