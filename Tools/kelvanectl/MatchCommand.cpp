#include "Support/WildcardMatch.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/JsonText.h"
#include "Tools/kelvanectl/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {

ExitStatus runMatch(CommandLine& line) {
    std::string pattern;
    std::vector<std::string> texts;
    line.parse([&](CLI::App& options) {
        options.add_option("PATTERN", pattern)->required();
        options.add_option("TEXT", texts)->required();
    });
    auto json = nlohmann::ordered_json::array();
    std::string lines;
    for (const std::string& text : texts) {
        const bool matches = WildcardMatch(pattern, text);
        json.push_back({{"text", text}, {"matches", matches}});
        lines += (matches ? "yes  " : "no   ") + printable(text) + '\n';
    }
    return finishWith(line.settings().json ? jsonText(json, true) : lines);
}

} // namespace kelvane::ctl
