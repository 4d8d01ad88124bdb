#pragma once

#include "Platform/SignalWatch.h"
#include "Tools/kelvanectl/Connection/LinkBreaker.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace kelvane::ctl {

// Looks after a program that runs until it is interrupted and whose main thread may be blocked in a call to
// the daemon. On a thread of its own it
// - ends the main loop on SIGINT and SIGTERM, and when nobody reads standard output any more;
// - breaks the link when the main loop has stood still for the given patience, as two looks half of it apart
// find,
//   and then has it run `stoodStill`; `isAtWork` says, on that thread, whether it has a reason to stand
//   still.
//
// Made on the main thread before any other thread, destroyed there. When the main thread does not come to an
// end within a second of a signal, because whoever reads standard output has stopped, the process ends all
// the same.
class WatchGuard {
public:
    WatchGuard(PollLoop& mainLoop, LinkBreaker& breaker, std::chrono::milliseconds patience,
               std::function<bool()> isAtWork, std::function<void()> stoodStill);
    ~WatchGuard();
    WatchGuard(const WatchGuard&) = delete;
    WatchGuard& operator=(const WatchGuard&) = delete;

private:
    void interrupt();
    void outputClosed();
    void look();

    PollLoop& mainLoop_;
    LinkBreaker& breaker_;
    const std::function<bool()> isAtWork_;
    const std::function<void()> stoodStill_;
    std::atomic<bool> turned_{true}; // Set by the main loop since the last check.
    std::atomic<bool> reported_{false};

    PollLoop loop_;
    SignalWatch signals_;
    PollLoop::Watch output_;
    Timer looking_;
    std::thread thread_;
};

} // namespace kelvane::ctl
