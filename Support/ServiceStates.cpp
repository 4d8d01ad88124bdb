#include "Support/ServiceStates.h"

#include "Platform/Bundle.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace kelvane {
namespace {

struct StateName {
    ServiceState state;
    std::string_view key;
    std::string_view text;
};

// Two states read alike in English and have keys of their own, so that a translation can tell them apart.
constexpr auto stateNames = std::to_array<StateName>({
    {ServiceState::InitialBackup, "Service_State_Initial_Backup", "Initial backup"},
    {ServiceState::Restoring, "Service_State_Restoring", "Restoring"},
    {ServiceState::BackupPending, "Service_State_Backup_Pending", "Backup pending"},
    {ServiceState::BackingUp, "Service_State_Backing_Up", "Backup in progress"},
    {ServiceState::Scanning, "Service_State_Scanning", "Scanning for changed files"},
    {ServiceState::Idle, "Service_State_Idle", "Idle"},
    {ServiceState::NoService, "Service_State_Alert_No_Service", "No service"},
    {ServiceState::Disabled, "Service_State_Alert_Disabled", "Disabled"},
    {ServiceState::Paused, "Service_State_Alert_Paused", "Paused"},
    {ServiceState::Retry, "Service_State_Alert_Retry", "Retry"},
    {ServiceState::BadConfiguration, "Service_State_Alert_Bad_Config", "Bad configuration"},
    {ServiceState::AccountDisabled, "Service_State_Alert_Account_Disabled", "Account disabled"},
    {ServiceState::OverQuota, "Service_State_Alert_Over_Quota", "Account over quota"},
    {ServiceState::NoInternet, "Service_State_Alert_No_Internet", "No internet connection"},
    {ServiceState::NoServer, "Service_State_Alert_No_Server", "No server"},
    {ServiceState::BackupFailed, "Service_State_Alert_Backup_Failed", "Backup failed"},
    {ServiceState::BackupOverdue, "Service_State_Alert_Backup_Overdue", "Backup overdue"},
    {ServiceState::OperationsMessage, "Service_State_Alert_Operations_Msg", "Operations message"},
    {ServiceState::UpgradeAvailable, "Service_State_Alert_Upgrade_Available", "Upgrade available"},
    {ServiceState::RecoverMode, "Service_State_Alert_Recover_Mode", "Recover mode"},
    {ServiceState::AccountOverQuota, "Service_State_Alert_Account_Over_Quota", "Account over quota"},
});

} // namespace

std::string stringForKelvaneServiceState(ServiceState state, const Bundle& bundle) {
    const auto* const name = std::ranges::find(stateNames, state, &StateName::state);
    return name == stateNames.end() ? std::string() : bundle.localizedString(name->key, name->text);
}

} // namespace kelvane
