#include "Tools/kelvanectl/Output/AlertReport.h"

#include "Support/Json/JsonPropertyList.h"
#include "Tools/kelvanectl/Output/DateText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

constexpr std::string_view indent = "    ";

std::string severityText(const StandingAlert& alert) {
    constexpr const char* texts[] = {"Information", "Warning", "Error"};
    return texts[severityRank(alert.severity)];
}

std::string indentedLines(std::string_view text) {
    std::string lines;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        lines.append(indent).append(printable(line)) += '\n';
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return lines;
}

// Quotes a word for a shell.
std::string shellWord(std::string_view text) {
    const bool isPlain = !text.empty() && std::ranges::all_of(text, [](unsigned char each) {
        return std::isalnum(each) != 0 ||
               std::string_view("-_.:/,").find(static_cast<char>(each)) != std::string_view::npos;
    });
    if (isPlain)
        return std::string(text);
    std::string word;
    for (const char each : text)
        word += each == '\'' ? std::string("'\\''") : std::string(1, each);
    return '\'' + word + '\'';
}

// A verb alone when it is unambiguous.
std::string commandFor(const StandingAlert& alert, const std::string& action) {
    const std::string_view verb = verbOf(action);
    const auto count =
        std::ranges::count_if(alert.actions, [&](const auto& each) { return verbOf(each) == verb; });
    return "kelvanectl alert " + shellWord(alert.id) + ' ' + shellWord(count == 1 ? verb : action);
}

} // namespace

std::string alertsText(const std::vector<StandingAlert>& alerts) {
    std::string text;
    for (const StandingAlert& alert : alerts) {
        text += severityText(alert) + ": " + printable(alert.title) + '\n' + indentedLines(alert.text) +
                std::string(indent) + "Since " + printable(dateText(alert.since)) + '\n';
        for (const std::string& action : alert.actions)
            text += std::string(indent) + "$ " + printable(commandFor(alert, action)) + '\n';
    }
    return text;
}

nlohmann::ordered_json alertsJson(const std::vector<StandingAlert>& alerts) {
    auto json = nlohmann::ordered_json::array();
    for (const StandingAlert& alert : alerts)
        json.push_back(jsonFromPropertyList(dictionaryOf(alert)));
    return json;
}

} // namespace kelvane::ctl
