#include "Tools/kelvanectl/Output/ScheduleReport.h"

#include "Common/ExtensionProtocol.h"
#include "Foundation/Description.h"
#include "Tools/kelvanectl/Output/DateText.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint64_t secondsPerMinute = 60;
constexpr std::uint64_t secondsPerHour = 3600;
constexpr std::uint64_t mostSecondsInMinutes = 100 * secondsPerMinute;

std::string durationLeft(std::uint64_t seconds) {
    if (seconds < secondsPerMinute)
        return "less than a minute left";
    const bool areMinutes = seconds < mostSecondsInMinutes;
    const std::uint64_t unit = areMinutes ? secondsPerMinute : secondsPerHour;
    const std::uint64_t count = seconds / unit + (seconds % unit >= unit / 2 ? 1 : 0);
    return "about " + std::to_string(count) + (areMinutes ? " minute" : " hour") + (count == 1 ? "" : "s") +
           " left";
}

Json textJson(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

Json dateJson(const std::optional<Date>& date) {
    return textJson(date ? iso8601(*date) : "");
}

Json numberJson(const std::optional<std::uint64_t>& number) {
    return number ? Json(*number) : Json();
}

} // namespace

std::optional<ScheduleReport> scheduleReport(const BackupState& state) {
    if (!state.hasExtension(extension::schedule))
        return std::nullopt;
    const Value verified = state.lastVerifiedDate();
    return ScheduleReport{.lastBackup = state.lastBackupDate(),
                          .nextBackup = state.nextBackupDate(),
                          .pausedUntil = state.pausedUntil(),
                          .destination = state.destination(),
                          .waitingFor = state.waitingFor(),
                          .bytesPerSecond = state.bytesPerSecond(),
                          .secondsLeft = state.secondsLeft(),
                          .lastVerified =
                              verified.isAbsent() ? std::nullopt : std::optional(verified.dateValue()),
                          .lastVerification = state.lastVerification()};
}

void addTo(Rows& rows, const ScheduleReport& report) {
    rows.add("Last backup", report.lastBackup ? dateText(*report.lastBackup) : "none");
    rows.addIfAny("Next backup", report.nextBackup ? dateText(*report.nextBackup) : report.waitingFor);
    rows.addIfAny("Destination", report.destination);
}

std::string progressText(const ScheduleReport& report) {
    std::string text;
    if (report.bytesPerSecond)
        text = shortSizeText(*report.bytesPerSecond) + "/s";
    if (report.secondsLeft)
        text += (text.empty() ? "" : ", ") + durationLeft(*report.secondsLeft);
    return text;
}

void addTo(Json& json, const ScheduleReport& report) {
    json[statekey::lastBackupDate] = dateJson(report.lastBackup);
    json[statekey::nextBackupDate] = dateJson(report.nextBackup);
    json[statekey::pausedUntil] = dateJson(report.pausedUntil);
    json[statekey::destination] = textJson(report.destination);
    json[statekey::waitingFor] = textJson(report.waitingFor);
    json[statekey::bytesPerSecond] = numberJson(report.bytesPerSecond);
    json[statekey::secondsLeft] = numberJson(report.secondsLeft);
    json[statekey::lastVerifiedDate] = dateJson(report.lastVerified);
    json[statekey::lastVerification] = textJson(report.lastVerification);
}

} // namespace kelvane::ctl
