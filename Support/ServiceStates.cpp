#include "Support/ServiceStates.h"

#include "Platform/Bundle.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace kelvane {
namespace {

struct ServiceState {
    std::int32_t code;
    std::string_view key;
    std::string_view text;
};

// 17 and 29 read alike in English and have keys of their own, so that a translation can tell them apart.
constexpr auto serviceStates = std::to_array<ServiceState>({
    {3, "Service_State_Initial_Backup", "Initial backup"},
    {4, "Service_State_Restoring", "Restoring"},
    {5, "Service_State_Backup_Pending", "Backup pending"},
    {6, "Service_State_Backing_Up", "Backup in progress"},
    {7, "Service_State_Scanning", "Scanning for changed files"},
    {8, "Service_State_Idle", "Idle"},
    {11, "Service_State_Alert_No_Service", "No service"},
    {12, "Service_State_Alert_Disabled", "Disabled"},
    {13, "Service_State_Alert_Paused", "Paused"},
    {14, "Service_State_Alert_Retry", "Retry"},
    {15, "Service_State_Alert_Bad_Config", "Bad configuration"},
    {16, "Service_State_Alert_Account_Disabled", "Account disabled"},
    {17, "Service_State_Alert_Over_Quota", "Account over quota"},
    {18, "Service_State_Alert_No_Internet", "No internet connection"},
    {19, "Service_State_Alert_No_Server", "No server"},
    {20, "Service_State_Alert_Backup_Failed", "Backup failed"},
    {22, "Service_State_Alert_Backup_Overdue", "Backup overdue"},
    {23, "Service_State_Alert_Operations_Msg", "Operations message"},
    {24, "Service_State_Alert_Upgrade_Available", "Upgrade available"},
    {25, "Service_State_Alert_Recover_Mode", "Recover mode"},
    {29, "Service_State_Alert_Account_Over_Quota", "Account over quota"},
});

} // namespace

std::string stringForKelvaneServiceState(std::int32_t code, const Bundle& bundle) {
    const auto* const state = std::ranges::find(serviceStates, code, &ServiceState::code);
    return state == serviceStates.end() ? std::string() : bundle.localizedString(state->key, state->text);
}

} // namespace kelvane
