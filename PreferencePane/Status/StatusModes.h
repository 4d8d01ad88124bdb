#pragma once

#include "Foundation/Assertion.h"
#include "PreferencePane/Link/DaemonMode.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace kelvane {

// What may be chosen where, and what is asked before: the decisions of the mode pop-up, whose items stand at
// the numbers of their modes. Pure.

// In the preferences: what was chosen last.
inline constexpr std::string_view modeSelectionKey = "modeSelectionPopupIndex";

inline constexpr std::int32_t daemonModeCount = 4;
using ModeItems = std::array<bool, daemonModeCount>;

// By the current mode. Recover is entered from Enabled and left to it; Disabled is left to Enabled.
inline constexpr std::array<ModeItems, daemonModeCount> modeItems{{
    // Enabled, Paused, Recover, Disabled
    {true, true, true, true},
    {true, true, false, false},
    {true, false, true, false},
    {true, false, false, true},
}};

[[nodiscard]] constexpr bool isDaemonMode(std::int32_t number) {
    return number >= 0 && number < daemonModeCount;
}

// Which items may be chosen. In a locked pane none; in an unlocked one the mode must be one.
[[nodiscard]] inline ModeItems enabledModeItems(std::int32_t currentMode, bool isUnlocked) {
    if (!isUnlocked)
        return {};
    if (!isDaemonMode(currentMode))
        throw AssertionFailure("unknown daemon mode " + std::to_string(currentMode),
                               "PreferencePane/StatusTabController", 824);
    return modeItems.at(static_cast<std::size_t>(currentMode));
}

// Recover mode is neither entered nor left without a warning.
[[nodiscard]] constexpr bool needsWarning(DaemonMode chosen, DaemonMode current) {
    return (chosen == DaemonMode::Enabled && current == DaemonMode::Recover) ||
           (chosen == DaemonMode::Recover && current != DaemonMode::Recover);
}

// Begun hours count.
[[nodiscard]] constexpr std::uint32_t hoursLeft(std::uint32_t minutes) {
    return minutes / 60 + (minutes % 60 == 0 ? 0 : 1);
}

} // namespace kelvane
