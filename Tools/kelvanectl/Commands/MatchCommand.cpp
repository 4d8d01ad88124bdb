#include "Support/WildcardMatch.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {

namespace {

ExitStatus showMatches(const CommandLine& line, const std::string& pattern,
                       const std::vector<std::string>& texts) {
    auto json = nlohmann::ordered_json::array();
    std::string lines;
    for (const std::string& text : texts) {
        const bool matches = WildcardMatch(pattern, text);
        json.push_back({{"text", text}, {"matches", matches}});
        lines += (matches ? "yes  " : "no   ") + printable(text) + '\n';
    }
    return finishWith(line.settings().json ? jsonText(json, true) : lines);
}

} // namespace

Action declareMatch(CLI::App& command) {
    struct Arguments {
        std::string pattern;
        std::vector<std::string> texts;
    };
    const auto arguments = std::make_shared<Arguments>();
    command.add_option("PATTERN", arguments->pattern, "An exclusion pattern with \"*\" and \"**\"")
        ->required();
    command.add_option("TEXT", arguments->texts, "Text to match as a whole")->required();
    return [arguments](const CommandLine& line) {
        return showMatches(line, arguments->pattern, arguments->texts);
    };
}

} // namespace kelvane::ctl
