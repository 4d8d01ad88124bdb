#pragma once

#include <CLI/App.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::ctl {

enum class ExitStatus : int {
    Success = 0,
    Unreachable = 1, // no daemon within the time, no answer, or the connection was lost
    Usage = 2,       // the command line, or input and output that failed
    Incomplete = 3,  // the daemon has done less than it was asked for
};

struct Settings {
    std::optional<std::string> daemonPath; // empty: where the daemon usually listens
    std::chrono::milliseconds timeout{3000};
    bool json = false;
};

class CommandLine;

// One command. `run` reads its arguments with `CommandLine::parse` or takes them raw, and throws
// CLI::ParseError for wrong ones.
struct CommandRow {
    std::string_view name;
    std::string_view arguments; // as the help shows them
    std::string_view summary;
    ExitStatus (*run)(CommandLine& line);
};

// What was typed: the options before the command, the command, and what stands behind it. An option that
// every command takes may stand on either side, except behind a command that takes its arguments raw.
class CommandLine {
public:
    // Throws CLI::ParseError.
    CommandLine(const std::vector<std::string>& words, std::span<const CommandRow> commands);

    [[nodiscard]] const Settings& settings() const { return settings_; }
    [[nodiscard]] const CommandRow& command() const { return *command_; }
    [[nodiscard]] const std::vector<std::string>& arguments() const { return arguments_; }
    [[nodiscard]] bool asksForHelp() const { return asksForHelp_; }

    // Reads the arguments behind the command, with those that `addArguments` describes.
    void parse(const std::function<void(CLI::App& options)>& addArguments = {});

    // The path of the daemon's socket. Throws CLI::ParseError when there is none, or when it is too long for
    // one.
    [[nodiscard]] std::string daemonPath() const;

private:
    void addSharedOptions(CLI::App& options);

    Settings settings_;
    const CommandRow* command_ = nullptr;
    std::vector<std::string> arguments_;
    bool asksForHelp_ = false;
};

// The page that `--help` shows.
[[nodiscard]] std::string helpText(std::span<const CommandRow> commands);

} // namespace kelvane::ctl
