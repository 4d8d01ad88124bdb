#pragma once

#include "PreferencePane/Link/BackupState.h"
#include "Tools/kelvanectl/Output/Rows.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace kelvane::ctl {

// What a daemon with the extension "schedule" says; none and empty where it does not say.
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

// None when the daemon does not name the extension.
[[nodiscard]] std::optional<ScheduleReport> scheduleReport(const BackupState& state);

// The last and the next backup, and the destination.
void addTo(Rows& rows, const ScheduleReport& report);
// "3.20 MB/s, about 4 minutes left"; empty when neither is known.
[[nodiscard]] std::string progressText(const ScheduleReport& report);
// Under the keys of the daemon's state; null where it does not say. Dates are ISO 8601 in UTC.
void addTo(nlohmann::ordered_json& json, const ScheduleReport& report);

} // namespace kelvane::ctl
