#include "Common/KelvProxy.h"
#include "Platform/Files/FileSystem.h"
#include "Tools/kelvanectl/Arguments/PauseArgument.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/DateText.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <ctime>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

constexpr std::uint64_t aDay = 24 * 60; // In minutes, as long as the settings pane pauses.

using Apply = void (*)(KelvaneProxy& daemon, std::uint32_t minutes);

// Each of these first sets the new mode and then ends the old one, so that no backup starts in between.
void enable(KelvaneProxy& daemon, std::uint32_t) {
    daemon.call<"setPausedMinutes:">(0U);
    daemon.call<"setRecoverMode:">(false);
    daemon.call<"setEnabled:">(true);
}

void pause(KelvaneProxy& daemon, std::uint32_t minutes) {
    daemon.call<"setPausedMinutes:">(minutes);
    daemon.call<"setEnabled:">(true);
}

void recover(KelvaneProxy& daemon, std::uint32_t) {
    daemon.call<"setRecoverMode:">(true);
    daemon.call<"setPausedMinutes:">(0U);
    daemon.call<"setEnabled:">(true);
}

void disable(KelvaneProxy& daemon, std::uint32_t) {
    daemon.call<"setEnabled:">(false);
}

ExitStatus setMode(const CommandLine& line, Apply apply, std::uint32_t minutes = 0) {
    return askDaemon(line, [&](Session& session) {
        if (const auto daemon = session.state().proxy())
            apply(*daemon, minutes);
    });
}

Action declareMode(const char* mode, Apply apply) {
    return [mode, apply](const CommandLine& line) {
        const ExitStatus status = setMode(line, apply);
        if (status != ExitStatus::Success || !line.settings().json)
            return status;
        return finishWith(jsonText(nlohmann::ordered_json{{"mode", mode}}, true));
    };
}

ExitStatus pauseBackup(const CommandLine& line, std::uint32_t minutes) {
    const ExitStatus status = setMode(line, pause, minutes);
    if (status != ExitStatus::Success)
        return status;
    if (line.settings().json)
        return finishWith(
            jsonText(nlohmann::ordered_json{{"mode", "paused"}, {"pausedMinutes", minutes}}, true));
    const Date end = dateFromTime(std::time(nullptr) + std::int64_t{60} * minutes);
    return finishWith("Backup is paused until " + printable(dateText(end)) + ".\n");
}

} // namespace

Action declareModeEnabled(CLI::App&) {
    return declareMode("enabled", enable);
}

Action declareModePaused(CLI::App& command) {
    struct Arguments {
        std::uint64_t minutes = aDay;
        std::string until;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::Option* const duration =
        addDuration(command, arguments->minutes, "For how long, such as 90, 2h or 3d");
    command.add_option("--until", arguments->until, "Until this time, such as 18:00 or \"2025-01-31 18:00\"")
        ->type_name("TIME")
        ->excludes(duration);
    return [arguments](const CommandLine& line) {
        const std::uint32_t minutes = arguments->until.empty()
                                          ? static_cast<std::uint32_t>(arguments->minutes)
                                          : minutesUntil(arguments->until, std::time(nullptr));
        return pauseBackup(line, minutes);
    };
}

Action declareModeRecover(CLI::App&) {
    return declareMode("recover", recover);
}

Action declareModeDisabled(CLI::App&) {
    return declareMode("disabled", disable);
}

} // namespace kelvane::ctl
