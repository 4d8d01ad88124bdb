#include "Tools/kelvanectl/JsonText.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {

std::string jsonText(const nlohmann::ordered_json& json, bool onOneLine) {
    constexpr auto mend = nlohmann::ordered_json::error_handler_t::replace;
    return json.dump(onOneLine ? -1 : 2, ' ', false, mend) + '\n';
}

} // namespace kelvane::ctl
