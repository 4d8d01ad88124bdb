#include "LocalDaemon/State/ServiceState.h"

#include "Common/RestoreStatus.h"
#include "Platform/Bundle.h"

namespace kelvane {

// What a person has chosen comes first: it says why nothing else happens. A pause outranks recover mode, as
// it does in the pane's own list of modes. Trouble stands until a try has gone well: it would come and go
// with every try else.
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
    // Never destroyed: a link's thread may ask while the process ends.
    static const Bundle& english = *new Bundle(Value());
    return stringForKelvaneServiceState(static_cast<ServiceState>(code), english);
}

bool isAnnounced(std::uint32_t serviceState) {
    return serviceState != restoreprogress::currentFile && serviceState != restoreprogress::currentFileSize;
}

} // namespace kelvane
