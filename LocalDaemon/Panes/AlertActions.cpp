#include "LocalDaemon/Panes/AlertActions.h"

#include "Common/StandingAlert.h"
#include "Support/Logging.h"

#include <algorithm>

namespace kelvane {

AlertActions::AlertActions(std::shared_ptr<Alerts> alerts) : alerts_(std::move(alerts)) {}

void AlertActions::add(const std::string& verb, Handler handler) {
    handlers_[verb] = std::move(handler);
}

std::string AlertActions::perform(const std::string& action, const std::string& alertId) const {
    const std::optional<Alert> alert = alerts_->standing(alertId);
    if (!alert)
        return "There is no alert \"" + alertId + "\".";
    if (std::ranges::find(alert->actions, action) == alert->actions.end())
        return "The alert \"" + alertId + "\" does not offer \"" + action + "\".";
    logNotice("Alert %@: %@", alertId, action);
    if (action == dismissAction) {
        alerts_->withdraw(alertId);
        return {};
    }
    const std::string_view verb = verbOf(action);
    const auto handler = handlers_.find(verb);
    if (handler == handlers_.end())
        return "This daemon has no handler for \"" + action + "\".";
    const std::string argument = action.substr(std::min(verb.size() + 1, action.size()));
    return handler->second(argument);
}

} // namespace kelvane
