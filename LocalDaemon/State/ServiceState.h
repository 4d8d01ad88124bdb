#pragma once

#include "Support/ServiceStates.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kelvane {

inline constexpr const char* nothingIsSelected = "Nothing is selected for backup.";

struct ServiceConditions {
    bool isEnabled = true;
    bool isPaused = false;
    bool isRecovering = false;
    bool isOverQuota = false;
    std::optional<ServiceState> trouble; // The failure of the last attempt to back up.
    bool isNothingSelected = false;
    bool isBackingUp = false;
    bool isInitialBackup = false;
    bool isScanning = false;
    bool hasPendingFiles = false;
    bool isDamaged = false; // Something in the backup cannot be restored.
};

[[nodiscard]] ServiceState serviceStateFor(const ServiceConditions& conditions);

// Returns the English name of a service state; empty for an unknown code.
[[nodiscard]] std::string serviceStateText(std::uint32_t code);

// Returns whether `stateChanged:` with this code announces a service state. Panes treat some codes of
// that callback as progress of a restore, and two of those are service states as well.
[[nodiscard]] bool isAnnounced(std::uint32_t serviceState);

} // namespace kelvane
