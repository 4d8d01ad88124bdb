#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace kelvane {

// The next backup while none is running.
struct PlannedBackup {
    std::optional<std::chrono::system_clock::time_point> date =
        std::nullopt;            // whole seconds; none: not planned
    std::string waitingFor = {}; // why none is running, as a sentence; empty: not known
};

} // namespace kelvane
