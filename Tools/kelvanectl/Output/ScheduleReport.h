#pragma once

#include "PreferencePane/Link/BackupState.h"
#include "Tools/kelvanectl/Output/Rows.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace kelvane::ctl {

// The entries of a daemon with the extension "schedule"; none or empty when it does not send them.
struct ScheduleReport {
    std::optional<Date> lastBackup;
    std::optional<Date> nextBackup;
    std::optional<Date> pausedUntil;
    std::string destination;
    std::string waitingFor;
    std::optional<std::uint64_t> bytesPerSecond;
    std::optional<std::uint64_t> secondsLeft;
    std::optional<Date> lastVerified;
    std::string lastVerification;
};

// Returns none when the daemon does not support the extension.
[[nodiscard]] std::optional<ScheduleReport> scheduleReport(const BackupState& state);

// Adds the last and the next backup, and the destination.
void addTo(Rows& rows, const ScheduleReport& report);
// Returns, for example, "3.20 MB/s, about 4 minutes left"; empty when both are unknown.
[[nodiscard]] std::string progressText(const ScheduleReport& report);
// Adds the entries under the keys of the daemon's state, null for missing ones. Dates are ISO 8601 in
// UTC.
void addTo(nlohmann::ordered_json& json, const ScheduleReport& report);

} // namespace kelvane::ctl
