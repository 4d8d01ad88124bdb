#include "Tools/kelvanectl/Arguments/CompletionPoint.h"

#include "Tools/kelvanectl/Arguments/CommandLine.h"

namespace kelvane::ctl {
namespace {

const CLI::Option* optionWithValue(const CLI::App& command, const std::string& word) {
    const CLI::Option* const option = command.get_option_no_throw(word);
    return option && option->nonpositional() && option->get_items_expected_max() > 0 ? option : nullptr;
}

// Updates the point by a complete word: an option, its value, a subcommand or an argument.
void takeWord(CompletionPoint& point, const std::string& word) {
    if (point.option) {
        if (point.option->check_lname("daemon"))
            point.daemonPath = word;
        point.option = nullptr;
    } else if (point.takesOptions && word == "--") {
        point.takesOptions = false;
    } else if (point.takesOptions && word.starts_with('-')) {
        const std::string name = word.substr(0, word.find('='));
        point.option = optionWithValue(*point.command, name);
        if (point.option && name != word) // The word contains the value.
            takeWord(point, word.substr(name.size() + 1));
    } else if (const CLI::App* const next =
                   point.arguments.empty() ? subcommandNamed(*point.command, word) : nullptr) {
        point.command = next;
    } else {
        point.arguments.push_back(word);
    }
}

} // namespace

std::vector<std::string> shellWords(std::string_view line) {
    std::vector<std::string> words(1);
    bool isInWord = false;
    char quote = '\0';
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char each = line[at];
        if (quote == '\0' && (each == ' ' || each == '\t' || each == '\n')) {
            if (isInWord)
                words.emplace_back();
            isInWord = false;
            continue;
        }
        isInWord = true;
        if (each == '\\' && quote != '\'' && at + 1 < line.size())
            words.back() += line[++at];
        else if (quote == '\0' && (each == '\'' || each == '"'))
            quote = each;
        else if (quote != '\0' && each == quote)
            quote = '\0';
        else
            words.back() += each;
    }
    return words;
}

CompletionPoint completionPoint(const CLI::App& program, std::string_view line) {
    std::vector<std::string> words = shellWords(line);
    CompletionPoint point{.command = &program, .word = words.back()};
    words.pop_back();
    for (std::size_t index = 1; index < words.size(); ++index) // Skips the program's name.
        takeWord(point, words[index]);
    const std::size_t sign = point.word.find('=');
    if (!point.option && point.takesOptions && point.word.starts_with("--") && sign != std::string::npos) {
        point.option = optionWithValue(*point.command, point.word.substr(0, sign));
        point.before = point.word.substr(0, sign + 1);
        point.word.erase(0, sign + 1);
    }
    return point;
}

} // namespace kelvane::ctl
