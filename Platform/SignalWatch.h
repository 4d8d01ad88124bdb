#pragma once

#include "Platform/PollLoop.h"

#include <csignal>
#include <functional>
#include <optional>
#include <vector>

namespace kelvane {

// Signals such as SIGINT and SIGTERM as something to read, for any event loop.
//
// They are blocked in the thread that makes this and in every thread started afterwards: it is made before
// the first thread and before the loop runs. Children inherit the mask, so whoever starts one clears it. When
// it goes, the old mask comes back, and a signal that nobody has taken yet is forgotten, not acted upon.
class SignalDescriptor {
public:
    // Throws std::system_error when the process has no descriptor left.
    explicit SignalDescriptor(const std::vector<int>& numbers);
    ~SignalDescriptor();
    SignalDescriptor(const SignalDescriptor&) = delete;
    SignalDescriptor& operator=(const SignalDescriptor&) = delete;

    // Readable while there is a signal to take.
    [[nodiscard]] int get() const { return descriptor_.get(); }
    [[nodiscard]] std::optional<int> take() const;

private:
    sigset_t previous_{};
    FileDescriptor descriptor_;
};

// The same as tasks of a loop.
class SignalWatch {
public:
    // Throws as SignalDescriptor does.
    SignalWatch(PollLoop& loop, const std::vector<int>& numbers, std::function<void(int signal)> task);

private:
    const SignalDescriptor descriptor_;
    PollLoop::Watch watch_;
};

} // namespace kelvane
