#include "Common/ExtensionProtocol.h"
#include "Common/StandingAlert.h"
#include "Tools/kelvanectl/AlertReport.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/JsonText.h"
#include "Tools/kelvanectl/Session.h"
#include "Tools/kelvanectl/Terminal.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

struct Choice {
    std::string action;
    std::string refusal; // no action is meant, or none alone
};

// A verb stands for the whole action when only one has it.
Choice choiceOf(const StandingAlert& alert, const std::string& words) {
    std::vector<std::string> meant;
    for (const std::string& action : alert.actions)
        if (action == words)
            return {action, ""};
        else if (verbOf(action) == words)
            meant.push_back(action);
    if (meant.size() == 1)
        return {meant.front(), ""};
    std::string offered;
    for (const std::string& action : meant.empty() ? alert.actions : meant)
        offered += (offered.empty() ? "" : ", ") + action;
    const std::string refusal = meant.empty()
                                    ? "the alert \"" + alert.id + "\" has no action \"" + words + '"'
                                    : '"' + words + "\" may mean several actions";
    return {"", refusal + (offered.empty() ? "" : "; there is " + offered)};
}

std::string act(BackupState& state, const std::string& id, const std::string& words) {
    const std::vector<StandingAlert> alerts = state.alerts();
    const auto alert = std::ranges::find(alerts, id, &StandingAlert::id);
    if (alert == alerts.end())
        return "there is no alert \"" + id + '"';
    const Choice choice = choiceOf(*alert, words);
    if (!choice.refusal.empty())
        return choice.refusal;
    return choice.action == dismissAction ? state.dismissAlert(id)
                                          : state.performAlertAction(choice.action, id);
}

} // namespace

ExitStatus runAlert(CommandLine& line) {
    std::string id;
    std::string action;
    line.parse([&](CLI::App& options) {
        auto* const idOption = options.add_option("ID", id);
        options.add_option("ACTION", action)->needs(idOption);
    });
    if (!id.empty() && action.empty())
        throw CLI::RequiredError("ACTION");
    std::vector<StandingAlert> alerts;
    std::string refusal;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        session.state().updateDaemonState();
        alerts = session.state().alerts();
        if (!session.state().hasExtension(extension::alerts))
            refusal = "this daemon keeps no list of alerts";
        else if (!id.empty())
            refusal = act(session.state(), id, action);
    });
    if (status != ExitStatus::Success)
        return status;
    if (!refusal.empty())
        return complain(ExitStatus::Usage, refusal);
    if (line.settings().json)
        return finishWith(jsonText(
            id.empty() ? alertsJson(alerts) : nlohmann::ordered_json{{"id", id}, {"action", action}}, true));
    return id.empty() ? finishWith(alerts.empty() ? "No alerts.\n" : alertsText(alerts))
                      : ExitStatus::Success;
}

} // namespace kelvane::ctl
