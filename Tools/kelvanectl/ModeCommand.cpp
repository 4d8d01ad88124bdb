#include "Common/KelvProxy.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/JsonText.h"
#include "Tools/kelvanectl/Session.h"
#include "Tools/kelvanectl/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

constexpr std::uint32_t aDay = 24 * 60; // minutes, as long as the settings pane pauses

struct Mode {
    std::string_view name;
    bool takesMinutes;
    void (*apply)(KelvaneProxy& daemon, std::uint32_t minutes);
};

// Whatever holds the backup back is set before what held it back goes, so that none begins in between.
constexpr Mode modes[] = {
    {"enabled", false,
     [](KelvaneProxy& daemon, std::uint32_t) {
         daemon.call<"setPausedMinutes:">(0U);
         daemon.call<"setRecoverMode:">(false);
         daemon.call<"setEnabled:">(true);
     }},
    {"paused", true,
     [](KelvaneProxy& daemon, std::uint32_t minutes) {
         daemon.call<"setPausedMinutes:">(minutes);
         daemon.call<"setEnabled:">(true);
     }},
    {"recover", false,
     [](KelvaneProxy& daemon, std::uint32_t) {
         daemon.call<"setRecoverMode:">(true);
         daemon.call<"setPausedMinutes:">(0U);
         daemon.call<"setEnabled:">(true);
     }},
    {"disabled", false, [](KelvaneProxy& daemon, std::uint32_t) { daemon.call<"setEnabled:">(false); }},
};

const Mode& modeNamed(std::string_view name) {
    for (const Mode& mode : modes)
        if (mode.name == name)
            return mode;
    throw CLI::ValidationError("there is no mode \"" + std::string(name) + '"', CLI::ExitCodes::ExtrasError);
}

} // namespace

ExitStatus runMode(CommandLine& line) {
    std::string name;
    std::optional<std::uint32_t> minutes;
    line.parse([&](CLI::App& options) {
        options.add_option("MODE", name)->required();
        options.add_option("MINUTES", minutes)->check(CLI::Range(1U, 0xffffffffU));
    });
    const Mode& mode = modeNamed(name);
    if (minutes && !mode.takesMinutes)
        throw CLI::ExtrasError({std::to_string(*minutes)});
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        if (const auto daemon = session.state().proxy())
            mode.apply(*daemon, minutes.value_or(aDay));
    });
    if (status != ExitStatus::Success || !line.settings().json)
        return status;
    return finishWith(jsonText(nlohmann::ordered_json{{"mode", name}}, true));
}

} // namespace kelvane::ctl
