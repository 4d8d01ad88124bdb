#pragma once

#include "Foundation/Value.h"

#include <string>
#include <vector>

namespace kelvane {

// An alert that is shown until its cause has ended, as a daemon with the extension "alerts" lists it in its
// state. The texts are sentences in the daemon's language.
struct StandingAlert {
    std::string id;       // does not change while the alert stands
    std::string severity; // "information", "warning" or "error"; anything else counts as information
    std::string title;
    std::string text;
    Date since;
    std::vector<std::string> actions; // what can be done about it, each as "verb:argument"
};

// The action with which the user dismisses an alert. Alerts that cannot be dismissed do not list it.
inline constexpr std::string_view dismissAction = "dismiss:";

// 2 for an error, 1 for a warning, 0 for anything else.
[[nodiscard]] int severityRank(std::string_view severity);

// The verb of "verb:argument".
[[nodiscard]] std::string_view verbOf(std::string_view action);

[[nodiscard]] Value dictionaryOf(const StandingAlert& alert);

// Keeps the order of the array. Skips entries without an id; a field that is missing or of another type is
// empty.
[[nodiscard]] std::vector<StandingAlert> standingAlertsFrom(const Value& array);

} // namespace kelvane
