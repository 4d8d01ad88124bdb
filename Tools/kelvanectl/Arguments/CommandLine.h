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
    Failed = 1,     // no daemon within the time, no answer, the connection was lost, or nothing to restore
    Usage = 2,      // the command line, or input and output that failed
    Incomplete = 3, // the daemon has done less than it was asked for
};

struct Settings {
    std::optional<std::string> daemonPath; // empty: where the daemon usually listens
    std::chrono::milliseconds timeout{3000};
    bool json = false;
};

class CommandLine;

// Runs a command whose arguments have been read. Throws CLI::ParseError for wrong ones.
using Action = std::function<ExitStatus(CommandLine& line)>;

struct CommandRow {
    std::string_view name;         // "status", or "exclude add" for an action of "exclude"
    std::string_view summary;      // empty: not shown in the help
    Action (*declare)(CLI::App&);  // declares the arguments; null for a command that only has actions
    std::string_view details = {}; // the last paragraph of the command's own help
};

// Null when there is none of that name.
[[nodiscard]] CLI::App* subcommandNamed(const CLI::App& group, const std::string& name);

// The program's commands and what was typed. The options that every command takes may stand anywhere, except
// behind the first argument of a command that takes its arguments raw.
class CommandLine {
public:
    explicit CommandLine(std::span<const CommandRow> commands);
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // Reads the words behind the program's name and runs the command. What is wrong with them is reported on
    // standard error.
    [[nodiscard]] ExitStatus run(const std::vector<std::string>& words);

    [[nodiscard]] const Settings& settings() const { return settings_; }
    // The path of the daemon's socket. Throws CLI::ParseError when there is none, or when it is too long.
    [[nodiscard]] std::string daemonPath() const;
    void setDaemonPath(const std::string& path) { settings_.daemonPath = path; }
    void setTimeout(std::chrono::milliseconds timeout) { settings_.timeout = timeout; }

    // With all commands below it, for the help and for completion.
    [[nodiscard]] CLI::App& program() { return program_; }

private:
    void declare(const CommandRow& row);
    void addSharedOptions(CLI::App& app);
    [[nodiscard]] CLI::App& chosen(CLI::App& group, std::vector<std::string>& words);
    [[nodiscard]] ExitStatus runCommand(std::vector<std::string> words);

    Settings settings_;
    CLI::App program_;
    std::map<const CLI::App*, Action> actions_;
    // The command that is being read: where a help page or an error belongs.
    CLI::App* current_ = &program_;
    std::string namesBefore_; // "kelvanectl exclude" for "add"
};

} // namespace kelvane::ctl
