#pragma once

#include <CLI/App.hpp>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::ctl {

enum class ExitStatus : int {
    Success = 0,
    Failed = 1, // No daemon within the timeout, no answer, the connection was lost, or nothing to restore.
    Usage = 2,  // A wrong command line, or an error of input or output.
    Incomplete = 3, // The daemon has done less than requested.
};

struct Settings {
    std::optional<std::string> daemonPath; // None for $KELVANE_DAEMON or the default socket.
    std::chrono::milliseconds timeout{3000};
    bool json = false;
};

class CommandLine;

// Runs a command whose arguments have been parsed. Throws CLI::ParseError for invalid ones.
using Action = std::function<ExitStatus(CommandLine& line)>;

struct CommandRow {
    std::string_view name;         // "status", or "exclude add" for an action of "exclude"
    std::string_view summary;      // Empty when the help does not list it.
    Action (*declare)(CLI::App&);  // Declares the arguments; null for a command that only has actions.
    std::string_view details = {}; // The last paragraph of the command's own help.
};

// Returns null when there is none with this name.
[[nodiscard]] CLI::App* subcommandNamed(const CLI::App& group, const std::string& name);

// The program's commands and the parsed command line. The options that every command takes may be anywhere,
// except after the first argument of a command that takes its arguments raw.
class CommandLine {
public:
    explicit CommandLine(std::span<const CommandRow> commands);
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // Parses the words after the program's name and runs the command. Errors in them are reported on
    // standard error.
    [[nodiscard]] ExitStatus run(const std::vector<std::string>& words);

    [[nodiscard]] const Settings& settings() const { return settings_; }
    // Returns the path of the daemon's socket. Throws CLI::ParseError when there is none, or when it is
    // too long.
    [[nodiscard]] std::string daemonPath() const;
    void setDaemonPath(const std::string& path) { settings_.daemonPath = path; }
    void setTimeout(std::chrono::milliseconds timeout) { settings_.timeout = timeout; }

    // The program with all its commands, for the help and for completion.
    [[nodiscard]] CLI::App& program() { return program_; }

private:
    void declare(const CommandRow& row);
    void addSharedOptions(CLI::App& app);
    [[nodiscard]] CLI::App& chosen(CLI::App& group, std::vector<std::string>& words);
    [[nodiscard]] ExitStatus runCommand(std::vector<std::string> words);

    Settings settings_;
    CLI::App program_;
    std::map<const CLI::App*, Action> actions_;
    // The command that is being parsed, whose help or error is printed.
    CLI::App* current_ = &program_;
    std::string namesBefore_; // For "add": "kelvanectl exclude".
};

} // namespace kelvane::ctl
