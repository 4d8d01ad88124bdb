#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace kelvane {

// A timer that runs for as long as this token lives. Belongs to the loop's thread.
class [[nodiscard]] Timer {
public:
    Timer() = default;
    explicit Timer(std::shared_ptr<void> registration) : registration_(std::move(registration)) {}

    // False for an empty token and after `stop`; a one-shot timer that has fired still counts as running.
    [[nodiscard]] bool isRunning() const { return registration_ != nullptr; }
    void stop() { registration_.reset(); }

private:
    std::shared_ptr<void> registration_;
};

// The event loop of the main thread, which runs every timer and every posted task, one after the other.
class MainLoop {
public:
    using Task = std::function<void()>;
    enum class Repeat { Once, Always };

    virtual ~MainLoop() = default;

    // From any thread, without waiting. Tasks run in the order in which they were posted.
    virtual void post(Task task) = 0;

    // On the loop's thread only. A repeating timer that was late does not catch up: it fires once and goes on
    // from there.
    virtual Timer schedule(std::chrono::milliseconds interval, Repeat repeat, Task task) = 0;

    // While the token lives no task runs, also not in an event loop inside the one that asks; what comes due
    // meanwhile runs afterwards. On the loop's thread only. A loop that runs no other inside itself has
    // nothing to hold.
    [[nodiscard]] virtual std::shared_ptr<void> hold() { return nullptr; }
};

} // namespace kelvane
