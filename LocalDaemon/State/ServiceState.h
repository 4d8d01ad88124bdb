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
    std::optional<ServiceState> trouble; // that the last try to back up has met
    bool isNothingSelected = false;
    bool isBackingUp = false;
    bool isInitialBackup = false;
    bool isScanning = false;
    bool hasPendingFiles = false;
    bool isDamaged = false; // something in the backup cannot be given back
};

[[nodiscard]] ServiceState serviceStateFor(const ServiceConditions& conditions);

// The English name of any service state; empty for a code that has none.
[[nodiscard]] std::string serviceStateText(std::uint32_t code);

// Whether `stateChanged:` with this code says that the service state has changed. Panes understand some
// numbers of that callback as progress of a restore, and two of those are service states as well.
[[nodiscard]] bool isAnnounced(std::uint32_t serviceState);

} // namespace kelvane
