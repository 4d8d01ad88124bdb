#pragma once

#include "Platform/PollLoop.h"

#include <csignal>
#include <functional>
#include <vector>

namespace kelvane {

// Signals such as SIGINT and SIGTERM as tasks of the loop.
//
// They are blocked in the thread that makes the watch and in every thread started afterwards: it is made
// before the first thread and before the loop runs. Children inherit the mask, so whoever starts one clears
// it. When the watch goes, the old mask comes back, and a watched signal that nobody has seen yet is
// forgotten, not acted upon.
class SignalWatch {
public:
    // Throws std::system_error when the process has no descriptor left.
    SignalWatch(PollLoop& loop, const std::vector<int>& signals, std::function<void(int signal)> task);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    sigset_t previous_{};
    FileDescriptor descriptor_;
    PollLoop::Watch watch_;
};

} // namespace kelvane
