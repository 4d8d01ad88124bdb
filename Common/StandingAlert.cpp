#include "Common/StandingAlert.h"

namespace kelvane {

int severityRank(std::string_view severity) {
    return severity == "error" ? 2 : severity == "warning" ? 1 : 0;
}

std::string_view verbOf(std::string_view action) {
    return action.substr(0, action.find(':'));
}

Value dictionaryOf(const StandingAlert& alert) {
    return Dictionary{{"id", alert.id},       {"severity", alert.severity},
                      {"title", alert.title}, {"text", alert.text},
                      {"since", alert.since}, {"actions", Array(alert.actions.begin(), alert.actions.end())}};
}

std::vector<StandingAlert> standingAlertsFrom(const Value& array) {
    std::vector<StandingAlert> alerts;
    for (const Value& entry : array.array()) {
        StandingAlert alert{.id = entry["id"].stringValue(),
                            .severity = entry["severity"].stringValue(),
                            .title = entry["title"].stringValue(),
                            .text = entry["text"].stringValue(),
                            .since = entry["since"].dateValue(),
                            .actions = {}};
        for (const Value& action : entry["actions"].array())
            alert.actions.push_back(action.stringValue());
        if (!alert.id.empty())
            alerts.push_back(std::move(alert));
    }
    return alerts;
}

} // namespace kelvane
