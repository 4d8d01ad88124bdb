#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kelvane {

// The machine's clocks, read at one moment.
struct ClockReading {
    std::int64_t wall = 0;      // seconds since 1970; can be set
    std::int64_t sinceBoot = 0; // seconds, including suspend; cannot be set
    std::string bootId;         // changes with each boot; empty: unknown
};
using MachineClock = std::function<ClockReading()>;

[[nodiscard]] ClockReading readMachineClock();
[[nodiscard]] std::string readBootId();

} // namespace kelvane
