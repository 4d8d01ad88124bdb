#include "LocalDaemon/State/ServiceState.h"

#include "Common/RestoreStatus.h"
#include "Platform/Bundle.h"

namespace kelvane {

// The user's choices come first, since they explain why nothing else happens. A pause precedes recover
// mode, as in the pane's list of modes. A failure stays until an attempt succeeds; otherwise it would
// disappear during each attempt.
ServiceState serviceStateFor(const ServiceConditions& conditions) {
    if (!conditions.isEnabled)
        return ServiceState::Disabled;
    if (conditions.isPaused)
        return ServiceState::Paused;
    if (conditions.isRecovering)
        return ServiceState::RecoverMode;
    if (conditions.isOverQuota)
        return ServiceState::OverQuota;
    if (conditions.trouble)
        return *conditions.trouble;
    if (conditions.isNothingSelected)
        return ServiceState::OperationsMessage;
    if (conditions.isBackingUp)
        return conditions.isInitialBackup ? ServiceState::InitialBackup : ServiceState::BackingUp;
    if (conditions.isScanning)
        return ServiceState::Scanning;
    if (conditions.hasPendingFiles)
        return ServiceState::BackupPending;
    return conditions.isDamaged ? ServiceState::OperationsMessage : ServiceState::Idle;
}

std::string serviceStateText(std::uint32_t code) {
    // Never destroyed, since a connection's thread may use it while the process exits.
    static const Bundle& english = *new Bundle(Value());
    return stringForKelvaneServiceState(static_cast<ServiceState>(code), english);
}

bool isAnnounced(std::uint32_t serviceState) {
    return serviceState != restoreprogress::currentFile && serviceState != restoreprogress::currentFileSize;
}

} // namespace kelvane
