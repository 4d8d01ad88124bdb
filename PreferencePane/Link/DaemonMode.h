#pragma once

#include <cstdint>

namespace kelvane {

// What the daemon does with changes, as a person chooses it.
enum class DaemonMode : std::int32_t { Enabled = 0, Paused = 1, Recover = 2, Disabled = 3 };

// A daemon that cannot be reached counts as disabled, whatever it said last. A pause hides the recover mode.
[[nodiscard]] constexpr DaemonMode daemonMode(std::uint32_t pausedMinutes, bool recoverMode, bool connected) {
    if (!connected)
        return DaemonMode::Disabled;
    if (pausedMinutes != 0)
        return DaemonMode::Paused;
    return recoverMode ? DaemonMode::Recover : DaemonMode::Enabled;
}

} // namespace kelvane
