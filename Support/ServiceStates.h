#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

class Bundle;

// The state of the service, by its number on the link. A daemon may send a number that is none of these.
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
    Retry = 14, // another program is at work in the repository
    BadConfiguration = 15,
    AccountDisabled = 16,
    OverQuota = 17,
    NoInternet = 18,
    NoServer = 19,
    BackupFailed = 20,
    BackupOverdue = 22,
    OperationsMessage = 23, // an alert says what it is
    UpgradeAvailable = 24,
    RecoverMode = 25,
    AccountOverQuota = 29,
};

// Whether a backup is under way in this state, or would be as soon as a file changed.
[[nodiscard]] constexpr bool isWorking(ServiceState state) {
    return state >= ServiceState::InitialBackup && state <= ServiceState::Idle;
}

// The name of the state for people, in the bundle's language; empty for a number that has none.
[[nodiscard]] std::string stringForKelvaneServiceState(ServiceState state, const Bundle& bundle);

} // namespace kelvane
