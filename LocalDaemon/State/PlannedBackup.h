#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace kelvane {

// The next backup while none is running.
struct PlannedBackup {
    std::optional<std::chrono::system_clock::time_point> date =
        std::nullopt;            // In whole seconds; none when no backup is planned.
    std::string waitingFor = {}; // Why none is running, as a sentence; empty when unknown.
};

} // namespace kelvane
