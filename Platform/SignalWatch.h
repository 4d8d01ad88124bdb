#pragma once

#include "Platform/PollLoop.h"

#include <csignal>
#include <functional>
#include <optional>
#include <vector>

namespace kelvane {

// Signals such as SIGINT and SIGTERM as a readable descriptor, for any event loop.
//
// Blocks the signals in the constructing thread and in every thread started afterwards: construct it before
// the first thread and before the loop runs. Child processes inherit the mask, so whoever starts one must
// clear it. The destructor restores the old mask and discards signals that have not been read.
class SignalDescriptor {
public:
    // Throws std::system_error when the process has no descriptor left.
    explicit SignalDescriptor(const std::vector<int>& numbers);
    ~SignalDescriptor();
    SignalDescriptor(const SignalDescriptor&) = delete;
    SignalDescriptor& operator=(const SignalDescriptor&) = delete;

    // Readable while a signal is pending.
    [[nodiscard]] int get() const { return descriptor_.get(); }
    [[nodiscard]] std::optional<int> take() const;

private:
    sigset_t previous_{};
    FileDescriptor descriptor_;
};

// Runs a task of a loop for each signal.
class SignalWatch {
public:
    // Throws as SignalDescriptor does.
    SignalWatch(PollLoop& loop, const std::vector<int>& numbers, std::function<void(int signal)> task);

private:
    const SignalDescriptor descriptor_;
    PollLoop::Watch watch_;
};

} // namespace kelvane
