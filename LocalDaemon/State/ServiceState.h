#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kelvane {

// The service states that this daemon finds itself in; panes know more of them.
enum class ServiceState : std::uint32_t {
    InitialBackup = 3,
    BackupPending = 5,
    BackingUp = 6,
    Scanning = 7,
    Idle = 8,
    Disabled = 12,
    Paused = 13,
    Retry = 14, // somebody else is at work in the repository
    BadConfiguration = 15,
    OverQuota = 17,
    NoInternet = 18,
    NoServer = 19,
    BackupFailed = 20,
    OperationsMessage = 23, // an alert says what it is
    RecoverMode = 25,
};

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
