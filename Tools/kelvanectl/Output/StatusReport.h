#pragma once

#include "PreferencePane/Link/BackupState.h"
#include "PreferencePane/Link/DaemonMode.h"
#include "Tools/kelvanectl/Output/ScheduleReport.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace kelvane::ctl {

// What `status` shows. Without a connection only the mode, the account and whether the quota is limited mean
// anything, and the latter two are as they were when the daemon was last reached.
struct StatusReport {
    struct Amount {
        std::optional<std::uint32_t> files; // none: the daemon does not say yet
        std::optional<std::uint64_t> bytes;
    };

    std::string daemonPath;
    bool connected = false;
    DaemonMode mode = DaemonMode::Disabled;
    std::uint32_t pausedMinutes = 0;

    ServiceState serviceState{};
    std::string serviceStateText; // empty for a code that has no name
    Amount backedUp;
    Amount pending;
    std::string currentBackupFile;
    std::string currentRestoreFile;
    std::uint32_t currentRestoreJob = 0;
    std::string statusString;
    bool lowerPriorityMode = false;
    bool hasUnreadFiles = false;
    std::uint64_t damagedFiles = 0;
    bool listsAlerts = false;
    std::vector<StandingAlert> alerts; // the worst first
    std::string verification;          // its outcome and date, or that it is running; empty: not known
    std::optional<ScheduleReport> schedule;

    std::string userEmail;
    std::int64_t computerNumber = 0;
    std::string serverURL;
    std::string skinId;
    bool isQuotaLimited = false;
    bool isOverQuota = false;
    std::uint32_t quotaMB = 0;
};

// Asks the daemon for what it does not send with its state.
[[nodiscard]] StatusReport statusReport(const BackupState& state, const Bundle& bundle,
                                        std::string daemonPath);

[[nodiscard]] std::string textOf(const StatusReport& report);
[[nodiscard]] nlohmann::ordered_json jsonOf(const StatusReport& report);

} // namespace kelvane::ctl
