#include "Tools/kelvanectl/CommandLine.h"

#include "Platform/SpecialFolders.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace kelvane::ctl {
namespace {

constexpr std::size_t longestSocketPath = 103;
constexpr double longestTimeout = 1e6; // seconds

std::chrono::milliseconds timeoutFromText(const std::string& text) {
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    if (!isWhole || !(seconds > 0 && seconds <= longestTimeout))
        throw CLI::ValidationError("--timeout",
                                   "\"" + text + "\" is no number of seconds above 0 and up to 1000000");
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

const CommandRow& commandNamed(std::string_view name, std::span<const CommandRow> commands) {
    const auto row =
        std::find_if(commands.begin(), commands.end(), [&](const auto& each) { return each.name == name; });
    if (row == commands.end())
        throw CLI::ValidationError("there is no command \"" + std::string(name) + '"',
                                   CLI::ExitCodes::ExtrasError);
    return *row;
}

std::string padded(std::string_view text, std::size_t width) {
    return std::string(text) + std::string(width - std::min(width, text.size()), ' ');
}

} // namespace

CommandLine::CommandLine(const std::vector<std::string>& words, std::span<const CommandRow> commands) {
    CLI::App options;
    std::string name;
    options.set_help_flag();
    options.add_flag("-h,--help", asksForHelp_);
    options.add_option("COMMAND", name);
    options.prefix_command(); // what follows the command is left as it stands
    addSharedOptions(options);
    options.parse(std::vector<std::string>(words.rbegin(), words.rend())); // it takes them from the back
    arguments_ = options.remaining();
    if (asksForHelp_)
        return;
    if (name.empty() && !arguments_.empty())
        throw CLI::ExtrasError({arguments_.front()});
    if (name.empty())
        throw CLI::RequiredError("COMMAND");
    command_ = &commandNamed(name, commands);
}

void CommandLine::parse(const std::function<void(CLI::App& options)>& addArguments) {
    CLI::App options;
    addSharedOptions(options);
    if (addArguments)
        addArguments(options);
    options.parse(std::vector<std::string>(arguments_.rbegin(), arguments_.rend()));
}

std::string CommandLine::daemonPath() const {
    const char* const variable = std::getenv("KELVANE_DAEMON");
    const bool isFromEnvironment = !settings_.daemonPath && variable && *variable != '\0';
    const std::string path =
        settings_.daemonPath.value_or(isFromEnvironment ? variable : defaultDaemonPath().value_or(""));
    if (settings_.daemonPath && path.empty())
        throw CLI::ValidationError("--daemon", "the path is empty");
    if (path.empty())
        throw CLI::ValidationError("--daemon",
                                   "this user has no safe folder for the daemon's socket; name one");
    if (path.size() > longestSocketPath)
        throw CLI::ValidationError(isFromEnvironment ? "KELVANE_DAEMON" : "--daemon",
                                   "the path of a socket has at most 103 bytes");
    return path;
}

void CommandLine::addSharedOptions(CLI::App& options) {
    options.add_option("--daemon", settings_.daemonPath);
    options.add_option_function<std::string>(
        "--timeout", [this](const std::string& text) { settings_.timeout = timeoutFromText(text); });
    options.add_flag("--json", settings_.json);
}

std::string helpText(std::span<const CommandRow> commands) {
    constexpr std::size_t column = 37;
    std::string text =
        "Usage: kelvanectl [--daemon PATH] [--timeout SECONDS] [--json] COMMAND [ARGUMENT...]\n"
        "\nAsks the backup daemon, and tells it what to do.\n\nCommands:\n";
    for (const CommandRow& row : commands) {
        const std::string usage =
            std::string(row.name) + (row.arguments.empty() ? "" : " ") + std::string(row.arguments);
        text += "  " + padded(usage, column) + std::string(row.summary) + '\n';
    }
    text += "\nOptions:\n"
            "  --daemon PATH                        else $KELVANE_DAEMON, else its usual place\n"
            "  --timeout SECONDS                    how long a command may take; 3 without it\n"
            "  --json                               for programs; from watch an object a line\n"
            "  -h, --help                           this page\n"
            "\nExit status: 0; 1 when the daemon cannot be reached or is lost; 2 for wrong usage or input,\n"
            "a path that the daemon does not know included; 3 when not all was backed up or restored.\n";
    return text;
}

} // namespace kelvane::ctl
