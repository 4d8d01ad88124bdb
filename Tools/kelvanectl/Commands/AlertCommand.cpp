#include "Common/ExtensionProtocol.h"
#include "Common/StandingAlert.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/AlertReport.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

struct Choice {
    std::string action;
    std::string refusal; // Why the words do not identify exactly one action.
};

// A verb alone is enough when only one action has it.
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
    if (!meant.empty())
        return {"", '"' + words + "\" is ambiguous: " + offered};
    return {"", "the alert \"" + alert.id + "\" has no action \"" + words + '"' +
                    (offered.empty() ? "" : "; choose one of " + offered)};
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

ExitStatus runAlert(const CommandLine& line, const std::string& id, const std::string& action) {
    if (!id.empty() && action.empty())
        throw CLI::RequiredError("ACTION");
    std::vector<StandingAlert> alerts;
    std::string refusal;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        session.state().updateDaemonState();
        alerts = session.state().alerts();
        if (!session.state().hasExtension(extension::alerts))
            refusal = "this daemon does not support alerts";
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

} // namespace

Action declareAlert(CLI::App& command) {
    struct Arguments {
        std::string id;
        std::string action;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::Option* const id = command.add_option("ID", arguments->id, "An alert, as \"alert\" shows it");
    command.add_option("ACTION", arguments->action, "One of its actions, or the verb of one")->needs(id);
    return [arguments](const CommandLine& line) { return runAlert(line, arguments->id, arguments->action); };
}

} // namespace kelvane::ctl
