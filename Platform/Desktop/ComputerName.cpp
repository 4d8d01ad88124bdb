#include "Platform/Desktop/ComputerName.h"

#include "Foundation/Unicode.h"

#include <array>
#include <fstream>
#include <string_view>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::string_view prettyNameKey = "PRETTY_HOSTNAME=";
// Longer than any line of such a file, and small enough to read at once.
constexpr std::size_t longestLine = 4096;

// Unquotes one word by the rules of a shell.
std::string unquoted(std::string_view word) {
    std::string text;
    char quote = 0;
    for (std::size_t i = 0; i < word.size(); ++i) {
        const char each = word[i];
        if (quote == 0 && (each == '"' || each == '\''))
            quote = each;
        else if (each == quote)
            quote = 0;
        else if (each == '\\' && quote != '\'' && i + 1 < word.size())
            text += word[++i];
        else
            text += each;
    }
    return text;
}

std::string prettyHostName(const std::string& file) {
    std::ifstream lines(file);
    std::string name;
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(prettyNameKey) && line.size() < longestLine)
            name = unquoted(std::string_view(line).substr(prettyNameKey.size()));
    return name;
}

std::string hostName() {
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : std::string();
}

} // namespace

std::string computerName(const std::string& machineInformation) {
    for (const std::string& name : {prettyHostName(machineInformation), hostName()})
        if (!name.empty() && isUtf8(name))
            return name;
    return {};
}

} // namespace kelvane
