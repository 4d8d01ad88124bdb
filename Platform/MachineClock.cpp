#include "Platform/MachineClock.h"

#include <chrono>
#include <ctime>
#include <fstream>

namespace kelvane {

ClockReading readMachineClock() {
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    timespec sinceBoot{};
    ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    return {now.time_since_epoch().count(), sinceBoot.tv_sec, readBootId()};
}

std::string readBootId() {
    std::string id;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
    return id;
}

} // namespace kelvane
