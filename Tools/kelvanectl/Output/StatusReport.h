#pragma once

#include "PreferencePane/Link/BackupState.h"
#include "PreferencePane/Link/DaemonMode.h"
#include "Tools/kelvanectl/Output/ScheduleReport.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace kelvane::ctl {

// The contents of `status`. Without a connection only the mode, the account and the quota are valid, and
// the latter two are from the last connection.
struct StatusReport {
    struct Amount {
        std::optional<std::uint32_t> files; // None while the daemon does not know it yet.
        std::optional<std::uint64_t> bytes;
    };

    std::string daemonPath;
    bool connected = false;
    DaemonMode mode = DaemonMode::Disabled;
    std::uint32_t pausedMinutes = 0;

    ServiceState serviceState{};
    std::string serviceStateText; // Empty for an unknown code.
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
    std::vector<StandingAlert> alerts; // The most severe first.
    std::string verification;          // Its outcome and date, or that it is running; empty when unknown.
    std::optional<ScheduleReport> schedule;

    std::string userEmail;
    std::int64_t computerNumber = 0;
    std::string serverURL;
    std::string skinId;
    bool isQuotaLimited = false;
    bool isOverQuota = false;
    std::uint32_t quotaMB = 0;
};

// Queries the daemon for the values that are not in its state.
[[nodiscard]] StatusReport statusReport(const BackupState& state, const Bundle& bundle,
                                        std::string daemonPath);

[[nodiscard]] std::string textOf(const StatusReport& report);
[[nodiscard]] nlohmann::ordered_json jsonOf(const StatusReport& report);

} // namespace kelvane::ctl
