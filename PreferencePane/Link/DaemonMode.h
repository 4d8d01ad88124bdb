#pragma once

#include <cstdint>

namespace kelvane {

// What the daemon does with changes, as the user chooses it.
enum class DaemonMode : std::int32_t { Enabled = 0, Paused = 1, Recover = 2, Disabled = 3 };

// An unreachable daemon counts as disabled, whatever it reported last. A pause hides recover mode.
[[nodiscard]] constexpr DaemonMode daemonMode(std::uint32_t pausedMinutes, bool recoverMode, bool connected) {
    if (!connected)
        return DaemonMode::Disabled;
    if (pausedMinutes != 0)
        return DaemonMode::Paused;
    return recoverMode ? DaemonMode::Recover : DaemonMode::Enabled;
}

} // namespace kelvane
