#pragma once

#include "Platform/FileDescriptor.h"

#include <atomic>
#include <chrono>

namespace kelvane {

// Tells threads that block to stop. Set once, by any thread, and stays set; wakes who polls its descriptor.
class StopSignal {
public:
    StopSignal();

    void set();
    [[nodiscard]] bool isSet() const { return set_; }
    [[nodiscard]] const std::atomic<bool>& flag() const { return set_; }
    [[nodiscard]] int descriptor() const { return event_.get(); } // readable once it is set

private:
    std::atomic<bool> set_{false};
    FileDescriptor event_;
};

// Waits; false at once when it is stopped.
[[nodiscard]] bool waitUnlessStopped(std::chrono::milliseconds duration, const StopSignal& stop);

} // namespace kelvane
