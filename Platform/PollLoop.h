#pragma once

#include "Foundation/MainLoop.h"
#include "Platform/FileDescriptor.h"

#include <deque>
#include <mutex>
#include <optional>
#include <vector>

namespace kelvane {

// The main loop of programs without a window: posted tasks, timers on the steady clock, and descriptors.
//
// Any thread may call `post` and `quit`; everything else, including the tokens, belongs to the thread that
// runs the loop. Each turn serves every ready descriptor, every due timer and every task posted before the
// turn once, so that none starves the others. An exception from a task leaves `run`; the remaining work is
// done when `run` is called again. Tasks posted after the end wait for the next `run`, or are dropped with
// the loop.
class PollLoop : public MainLoop {
public:
    // Watches a descriptor for as long as it lives; the descriptor must stay open that long.
    class [[nodiscard]] Watch {
    public:
        Watch() = default;
        void stop() { registration_.reset(); }

    private:
        friend class PollLoop;
        explicit Watch(std::shared_ptr<void> registration) : registration_(std::move(registration)) {}

        std::shared_ptr<void> registration_;
    };

    // Throws std::system_error when the process has no descriptor left.
    PollLoop();
    ~PollLoop() override;
    PollLoop(const PollLoop&) = delete;
    PollLoop& operator=(const PollLoop&) = delete;

    // Runs until `quit` and returns its status. Returns at once when `quit` was called before.
    int run();
    // Ends the loop after the current task. The first status wins.
    void quit(int status = 0);

    void post(Task task) override;
    Timer schedule(std::chrono::milliseconds interval, Repeat repeat, Task task) override;
    // Runs `task` repeatedly while one of `pollEvents` (as for poll) is set, and on an error or hang-up.
    Watch watchDescriptor(int descriptor, short pollEvents, Task task);

private:
    using Clock = std::chrono::steady_clock;
    struct TimerEntry;
    struct WatchEntry;

    void serveDescriptors();
    void serveTimers();
    void servePosted();

    [[nodiscard]] int pollTimeout();
    [[nodiscard]] std::vector<std::weak_ptr<TimerEntry>> dueTimers(Clock::time_point now);
    [[nodiscard]] Task takePosted();
    [[nodiscard]] bool isEnding();
    void wake();

    const FileDescriptor wakeup_;
    std::mutex mutex_; // guards the inbox and the status
    std::deque<Task> inbox_;
    std::optional<int> status_;
    std::vector<std::weak_ptr<TimerEntry>> timers_;
    std::vector<std::weak_ptr<WatchEntry>> watches_;
};

} // namespace kelvane
