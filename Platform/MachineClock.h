#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kelvane {

// What the machine's clocks show at one moment.
struct ClockReading {
    std::int64_t wall = 0;      // seconds since 1970, as the clock is set
    std::int64_t sinceBoot = 0; // seconds, sleep included; nobody can set it
    std::string bootId;         // another one after each start of the machine; empty: not known
};
using MachineClock = std::function<ClockReading()>;

[[nodiscard]] ClockReading readMachineClock();
[[nodiscard]] std::string readBootId();

} // namespace kelvane
