#pragma once

#include <cstdint>

namespace kelvane {

// What the daemon does with changes, as a person chooses it.
enum class DaemonMode : std::int32_t { Enabled = 0, Paused = 1, Recover = 2, Disabled = 3 };

// A pause hides the recover mode; a daemon that cannot be reached counts as disabled.
[[nodiscard]] constexpr DaemonMode daemonMode(std::uint32_t pausedMinutes, bool recoverMode, bool connected) {
    if (pausedMinutes != 0)
        return DaemonMode::Paused;
    if (recoverMode)
        return DaemonMode::Recover;
    return connected ? DaemonMode::Enabled : DaemonMode::Disabled;
}

} // namespace kelvane
