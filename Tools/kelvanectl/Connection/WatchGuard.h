#pragma once

#include "Platform/SignalWatch.h"
#include "Tools/kelvanectl/Connection/LinkBreaker.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace kelvane::ctl {

// Supervises a program that runs until it is interrupted and whose main thread may be blocked in a call to
// the daemon. On a separate thread it
// - quits the main loop on SIGINT and SIGTERM, and when the reader of standard output closes it;
// - closes the connection when the main loop has not run a task for the timeout, which is checked twice in
//   that time, and then runs `stalled` in the loop. Not while `wasActive`, which is called on that thread,
//   returns true.
//
// Created on the main thread before any other thread, destroyed there. When the main thread does not end
// within a second of an interruption, because it is blocked while writing to standard output, the process
// exits with status 0.
class WatchGuard {
public:
    WatchGuard(PollLoop& mainLoop, LinkBreaker& breaker, std::chrono::milliseconds timeout,
               std::function<bool()> wasActive, std::function<void()> stalled);
    ~WatchGuard();
    WatchGuard(const WatchGuard&) = delete;
    WatchGuard& operator=(const WatchGuard&) = delete;

private:
    void interrupt();
    void outputClosed();
    void checkMainLoop();

    PollLoop& mainLoop_;
    LinkBreaker& breaker_;
    const std::function<bool()> wasActive_;
    const std::function<void()> stalled_;
    std::atomic<bool> turned_{true}; // Set by the main loop since the last check.
    std::atomic<bool> reported_{false};

    PollLoop loop_;
    SignalWatch signals_;
    PollLoop::Watch output_;
    Timer checkTimer_;
    std::thread thread_;
};

} // namespace kelvane::ctl
