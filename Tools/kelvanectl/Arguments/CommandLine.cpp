#include "Tools/kelvanectl/Arguments/CommandLine.h"

#include "Platform/SocketAddress.h"
#include "Platform/SpecialFolders.h"
#include "Tools/kelvanectl/Arguments/HelpFormatter.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <CLI/Config.hpp>
#include <algorithm>
#include <charconv>
#include <memory>
#include <sstream>
#include <utility>

namespace kelvane::ctl {
namespace {

constexpr const char* programName = "kelvanectl";
constexpr const char* commandGroup = "Commands";
constexpr double longestTimeout = 1e6; // seconds

constexpr const char* summary = "Shows the state of the backup daemon, and controls it.";
constexpr const char* footer =
    "\"kelvanectl COMMAND --help\" describes one command; the man page kelvanectl(1) all of them.\n\n"
    "Exit status: 0; 1 when the daemon cannot be reached or is lost, or a path to restore is not in the\n"
    "backup; 2 for a usage error or invalid input, or a path that the daemon does not know; 3 when not\n"
    "everything was backed up, restored or checked.";

std::chrono::milliseconds timeoutFromText(const std::string& text) {
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    if (!isWhole || !(seconds > 0 && seconds <= longestTimeout))
        throw CLI::ValidationError("--timeout",
                                   "\"" + text + "\" is not a number of seconds above 0 and up to 1000000");
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

// CLI11 expects the words in reverse order.
void parseWords(CLI::App& app, const std::vector<std::string>& words) {
    app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
}

std::string namesOf(const std::vector<const CLI::App*>& commands) {
    std::string names;
    for (const CLI::App* const command : commands)
        names += (names.empty() ? "" : ", ") + command->get_name();
    return names;
}

// For an option with several values, CLI11 parses "[a,b]" as a list of two and "[]" as an empty one. A mark
// before the bracket, which is removed after parsing, makes it an ordinary word.
void keepBracketsLiteral(CLI::App& command, std::vector<std::string>& words) {
    constexpr char mark = '\x01';
    const std::vector<CLI::Option*> options = command.get_options();
    if (std::ranges::none_of(options, &CLI::Option::get_allow_extra_args))
        return;
    for (CLI::Option* const option : options)
        if (option->get_items_expected_max() > 0)
            option->transform(
                [](const std::string& word) { return word.starts_with(mark) ? word.substr(1) : word; });
    for (std::string& word : words)
        if (word.starts_with('[') || word.starts_with(mark))
            word.insert(0, 1, mark);
}

} // namespace

CommandLine::CommandLine(std::span<const CommandRow> commands) : program_(summary, programName) {
    program_.formatter(std::make_shared<HelpFormatter>());
    program_.set_help_flag("-h,--help", "Show this help");
    program_.set_version_flag("--version", std::string(programName) + " " KELVANE_VERSION,
                              "Show the program's version");
    program_.footer(footer);
    addSharedOptions(program_);
    program_.require_subcommand(1);
    for (const CommandRow& row : commands)
        declare(row);
}

void CommandLine::declare(const CommandRow& row) {
    CLI::App* parent = &program_;
    std::istringstream names{std::string(row.name)};
    std::string name;
    names >> name;
    for (std::string next; names >> next; name = next)
        parent = parent->get_subcommand(name);
    CLI::App& command = *parent->add_subcommand(name, std::string(row.summary));
    command.group(row.summary.empty() ? "" : parent == &program_ ? commandGroup : "Actions");
    command.footer(std::string(row.details));
    if (row.declare)
        actions_[&command] = row.declare(command);
    else
        command.require_subcommand(1);
    addSharedOptions(command);
}

ExitStatus CommandLine::run(const std::vector<std::string>& words) {
    try {
        return runCommand(words);
    } catch (const CLI::CallForHelp&) {
        return finishWith(current_->help(namesBefore_));
    } catch (const CLI::CallForVersion& version) {
        return finishWith(std::string(version.what()) + '\n');
    } catch (const CLI::ParseError& error) {
        const std::string names = (namesBefore_.empty() ? "" : namesBefore_ + ' ') + current_->get_name();
        return complain(ExitStatus::Usage, std::string(error.what()) + " (see " + names + " --help)");
    } catch (const std::exception& error) {
        return complain(ExitStatus::Usage, error.what());
    }
}

ExitStatus CommandLine::runCommand(std::vector<std::string> words) {
    while (!actions_.contains(current_)) {
        CLI::App& next = chosen(*current_, words);
        namesBefore_ += (namesBefore_.empty() ? "" : " ") + current_->get_name();
        current_ = &next;
    }
    keepBracketsLiteral(*current_, words);
    parseWords(*current_, words);
    return actions_.at(current_)(*this);
}

CLI::App* subcommandNamed(const CLI::App& group, const std::string& name) {
    try {
        return group.get_subcommand(name);
    } catch (const CLI::OptionNotFound&) {
        return nullptr;
    }
}

// Parses the options before the name of a command or an action, and removes them and the name from the words.
// The remaining words belong to the command.
CLI::App& CommandLine::chosen(CLI::App& group, std::vector<std::string>& words) {
    const bool isProgram = &group == &program_;
    CLI::App options;
    options.set_help_flag("-h,--help");
    if (isProgram)
        options.set_version_flag("--version", program_.version());
    options.prefix_command();
    addSharedOptions(options);
    parseWords(options, words);
    words = options.remaining();

    const std::string choices =
        namesOf(std::as_const(group).get_subcommands([](const CLI::App*) { return true; }));
    if (words.empty())
        throw CLI::RequiredError(isProgram ? "COMMAND" : group.get_name() + ": one of " + choices);
    const std::string name = words.front();
    if (name.starts_with('-'))
        throw CLI::ExtrasError({name});
    words.erase(words.begin());
    if (CLI::App* const command = subcommandNamed(group, name))
        return *command;
    throw CLI::ValidationError(isProgram ? "there is no command \"" + name + '"'
                                         : group.get_name() + " has no action \"" + name +
                                               "\"; choose one of " + choices,
                               CLI::ExitCodes::ExtrasError);
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
                                   "no folder for the daemon's socket: $XDG_RUNTIME_DIR is not usable and "
                                   "/tmp/kelvane-UID is not private; specify the path of a socket");
    if (path.size() > longestSocketPath)
        throw CLI::ValidationError(isFromEnvironment ? "KELVANE_DAEMON" : "--daemon",
                                   "socket path too long: " + std::to_string(path.size()) + " bytes, limit " +
                                       std::to_string(longestSocketPath));
    return path;
}

void CommandLine::addSharedOptions(CLI::App& app) {
    app.add_option("--daemon", settings_.daemonPath,
                   "The daemon's socket (default: $KELVANE_DAEMON or the user's own daemon)")
        ->type_name("SOCKET");
    app.add_option_function<std::string>(
           "--timeout", [this](const std::string& text) { settings_.timeout = timeoutFromText(text); },
           "How long a command may take (default: 3)")
        ->type_name("SECONDS");
    app.add_flag("--json", settings_.json, "Write JSON, for programs");
}

} // namespace kelvane::ctl
