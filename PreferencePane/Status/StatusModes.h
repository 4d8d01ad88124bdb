#pragma once

#include "Foundation/Assertion.h"
#include "PreferencePane/Link/DaemonMode.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace kelvane {

// The rules of the mode pop-up, whose item indexes are the numbers of the modes: which modes may be chosen,
// and which need a warning. Pure functions.

// The preferences key of the last choice.
inline constexpr std::string_view modeSelectionKey = "modeSelectionPopupIndex";

inline constexpr std::int32_t daemonModeCount = 4;
using ModeItems = std::array<bool, daemonModeCount>;

// Indexed by the current mode. Recover is entered from Enabled and left to it; Disabled is left to Enabled.
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

// The modes that may be chosen: none in a locked pane. In an unlocked one an invalid `currentMode` is an
// assertion failure.
[[nodiscard]] inline ModeItems enabledModeItems(std::int32_t currentMode, bool isUnlocked) {
    if (!isUnlocked)
        return {};
    if (!isDaemonMode(currentMode))
        throw AssertionFailure("unknown daemon mode " + std::to_string(currentMode),
                               "PreferencePane/StatusTabController", 824);
    return modeItems.at(static_cast<std::size_t>(currentMode));
}

// Entering and leaving recover mode both need a warning.
[[nodiscard]] constexpr bool needsWarning(DaemonMode chosen, DaemonMode current) {
    return (chosen == DaemonMode::Enabled && current == DaemonMode::Recover) ||
           (chosen == DaemonMode::Recover && current != DaemonMode::Recover);
}

// Whole hours, rounded up.
[[nodiscard]] constexpr std::uint32_t hoursLeft(std::uint32_t minutes) {
    return minutes / 60 + (minutes % 60 == 0 ? 0 : 1);
}

} // namespace kelvane
