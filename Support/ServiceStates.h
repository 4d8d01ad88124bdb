#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

class Bundle;

// The state of the service, with its number in the protocol. A daemon may also send other numbers.
enum class ServiceState : std::uint32_t {
    InitialBackup = 3,
    Restoring = 4,
    BackupPending = 5,
    BackingUp = 6,
    Scanning = 7,
    Idle = 8,
    NoService = 11,
    Disabled = 12,
    Paused = 13,
    Retry = 14, // another program has locked the repository
    BadConfiguration = 15,
    AccountDisabled = 16,
    OverQuota = 17,
    NoInternet = 18,
    NoServer = 19,
    BackupFailed = 20,
    BackupOverdue = 22,
    OperationsMessage = 23, // an alert describes it
    UpgradeAvailable = 24,
    RecoverMode = 25,
    AccountOverQuota = 29,
};

// Returns whether a backup runs in this state, or would start as soon as a file changes.
[[nodiscard]] constexpr bool isWorking(ServiceState state) {
    return state >= ServiceState::InitialBackup && state <= ServiceState::Idle;
}

// Returns the display name of the state in the bundle's language; empty for a number that has none.
[[nodiscard]] std::string stringForKelvaneServiceState(ServiceState state, const Bundle& bundle);

} // namespace kelvane
