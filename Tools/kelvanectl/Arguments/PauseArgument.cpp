#include "Tools/kelvanectl/Arguments/PauseArgument.h"

#include <CLI/Config.hpp>
#include <limits>
#include <optional>

namespace kelvane::ctl {
namespace {

constexpr std::uint64_t mostMinutes = std::numeric_limits<std::uint32_t>::max();
constexpr std::time_t secondsOfAMinute = 60;

std::optional<std::tm> calendarFrom(const std::string& text, const char* format, std::tm calendar) {
    const char* const end = ::strptime(text.c_str(), format, &calendar);
    return end != nullptr && *end == '\0' ? std::optional(calendar) : std::nullopt;
}

// Adds calendar days, not multiples of 24 hours, because daylight saving time may begin or end in between.
std::time_t timeOf(std::tm calendar, int daysLater = 0) {
    calendar.tm_mday += daysLater;
    calendar.tm_sec = 0;
    calendar.tm_isdst = -1;
    return std::mktime(&calendar);
}

std::optional<std::time_t> timeFrom(const std::string& text, std::time_t now) {
    std::tm today{};
    ::localtime_r(&now, &today);
    if (const auto calendar = calendarFrom(text, "%H:%M", today))
        return timeOf(*calendar) > now ? timeOf(*calendar) : timeOf(*calendar, 1);
    for (const char* const format : {"%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M"})
        if (const auto calendar = calendarFrom(text, format, {}))
            return timeOf(*calendar);
    return std::nullopt;
}

} // namespace

CLI::Option* addDuration(CLI::App& command, std::uint64_t& minutes, const std::string& description) {
    const std::map<std::string, std::uint64_t> units{{"m", 1}, {"min", 1}, {"h", 60}, {"d", 24 * 60}};
    return command.add_option("DURATION", minutes, description)
        ->transform(CLI::AsNumberWithUnit(units, CLI::AsNumberWithUnit::CASE_INSENSITIVE))
        ->check(CLI::Range(std::uint64_t{1}, mostMinutes));
}

std::uint32_t minutesUntil(const std::string& text, std::time_t now) {
    const auto time = timeFrom(text, now);
    if (!time)
        throw CLI::ValidationError("--until",
                                   '"' + text + "\" is not a time such as 18:00 or \"2025-01-31 18:00\"");
    if (*time <= now)
        throw CLI::ValidationError("--until", '"' + text + "\" has passed");
    const auto minutes = static_cast<std::uint64_t>((*time - now + secondsOfAMinute - 1) / secondsOfAMinute);
    return static_cast<std::uint32_t>(std::min(minutes, mostMinutes));
}

} // namespace kelvane::ctl
