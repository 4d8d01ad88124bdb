#pragma once

#include "Common/StandingAlert.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace kelvane::ctl {

// Returns for each alert its severity and title, its text, when it was raised, and the commands for its
// actions.
[[nodiscard]] std::string alertsText(const std::vector<StandingAlert>& alerts);
[[nodiscard]] nlohmann::ordered_json alertsJson(const std::vector<StandingAlert>& alerts);

} // namespace kelvane::ctl
