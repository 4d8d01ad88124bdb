#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace kelvane {

// Keeps a timer running; the timer stops when this token is destroyed. Use it on the loop's thread only.
class [[nodiscard]] Timer {
public:
    Timer() = default;
    explicit Timer(std::shared_ptr<void> registration) : registration_(std::move(registration)) {}

    // False for an empty token and after `stop`. A one-shot timer still counts as running after it has fired.
    [[nodiscard]] bool isRunning() const { return registration_ != nullptr; }
    void stop() { registration_.reset(); }

private:
    std::shared_ptr<void> registration_;
};

// The event loop of the main thread. It runs timers and posted tasks one at a time.
class MainLoop {
public:
    using Task = std::function<void()>;
    enum class Repeat { Once, Always };

    virtual ~MainLoop() = default;

    // May be called from any thread and does not block. Tasks run in the order in which they were posted.
    virtual void post(Task task) = 0;

    // May be called on the loop's thread only. A repeating timer that is late fires once, and the next
    // interval begins then.
    virtual Timer schedule(std::chrono::milliseconds interval, Repeat repeat, Task task) = 0;

    // Suspends timers and tasks until the token is destroyed, also in nested event loops; what becomes due
    // in the meantime runs afterwards. May be called on the loop's thread only. A loop that does not support
    // nested loops returns null, since it has nothing to suspend.
    [[nodiscard]] virtual std::shared_ptr<void> hold() { return nullptr; }
};

} // namespace kelvane
