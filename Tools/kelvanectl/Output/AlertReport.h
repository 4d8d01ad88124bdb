#pragma once

#include "Common/StandingAlert.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace kelvane::ctl {

// For each alert its severity and title, its text, since when it stands, and the commands that do something
// about it.
[[nodiscard]] std::string alertsText(const std::vector<StandingAlert>& alerts);
[[nodiscard]] nlohmann::ordered_json alertsJson(const std::vector<StandingAlert>& alerts);

} // namespace kelvane::ctl
