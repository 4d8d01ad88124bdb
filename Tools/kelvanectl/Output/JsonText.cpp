#include "Tools/kelvanectl/Output/JsonText.h"

#include "Tools/kelvanectl/Output/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

// Escapes the control characters that the JSON writer does not: delete, and those beyond ASCII. Only
// strings contain them. (The remaining ones are the writer's own line breaks.)
std::string withControlsEscaped(const std::string& json) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t at = 0; at < json.size(); ++at) {
        const std::size_t length = controlLength(std::string_view(json).substr(at));
        if (length == 0 || json[at] == '\n') {
            text += json[at];
            continue;
        }
        unsigned code = static_cast<unsigned char>(json[at]) & (length == 1   ? 0x7FU
                                                                : length == 2 ? 0x1FU
                                                                              : 0x0FU);
        for (std::size_t left = length - 1; left > 0; --left)
            code = (code << 6U) | (static_cast<unsigned char>(json[++at]) & 0x3FU);
        text += "\\u";
        for (const unsigned shift : {12U, 8U, 4U, 0U})
            text += digits[(code >> shift) & 0xFU];
    }
    return text;
}

} // namespace

std::string jsonText(const nlohmann::ordered_json& json, bool onOneLine) {
    constexpr auto mend = nlohmann::ordered_json::error_handler_t::replace;
    return withControlsEscaped(json.dump(onOneLine ? -1 : 2, ' ', false, mend)) + '\n';
}

} // namespace kelvane::ctl
