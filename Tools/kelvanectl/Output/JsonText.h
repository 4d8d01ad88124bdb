#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace kelvane::ctl {

// With a line end. On one line, or on as many as make it easy to read. Text that is no UTF-8 is mended;
// no control character stands in it as itself.
[[nodiscard]] std::string jsonText(const nlohmann::ordered_json& json, bool onOneLine);

} // namespace kelvane::ctl
