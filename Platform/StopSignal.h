#pragma once

#include "Platform/FileDescriptor.h"

#include <atomic>
#include <chrono>

namespace kelvane {

// Tells threads to stop, and wakes those that poll its descriptor. Any thread may set it; it stays set.
class StopSignal {
public:
    StopSignal();

    void set();
    [[nodiscard]] bool isSet() const { return set_; }
    [[nodiscard]] const std::atomic<bool>& flag() const { return set_; }
    [[nodiscard]] int descriptor() const { return event_.get(); } // readable once set

private:
    std::atomic<bool> set_{false};
    FileDescriptor event_;
};

// Waits for `duration`; returns false at once when stopped.
[[nodiscard]] bool waitUnlessStopped(std::chrono::milliseconds duration, const StopSignal& stop);

} // namespace kelvane
