#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace kelvane::ctl {

// Returns the JSON with a line break at the end, on one line or indented. Invalid UTF-8 is replaced, and
// control characters are escaped.
[[nodiscard]] std::string jsonText(const nlohmann::ordered_json& json, bool onOneLine);

} // namespace kelvane::ctl
