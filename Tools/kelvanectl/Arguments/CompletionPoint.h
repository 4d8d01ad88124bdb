#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::ctl {

// The end of a command line, at which a shell requests completions.
struct CompletionPoint {
    const CLI::App* command = nullptr;    // The command to which the word belongs.
    std::vector<std::string> arguments{}; // The command's arguments before the word.
    const CLI::Option* option = nullptr;  // The option whose value the word is; null for any other word.
    std::string word{};                   // The word as typed so far, without quotes.
    std::string before{};                 // For example "--to=" when the word begins after it.
    bool takesOptions = true;             // No "--" was found.
    std::optional<std::string> daemonPath{};
};

// Splits a shell's command line into words without quotes; the last one may be empty.
[[nodiscard]] std::vector<std::string> shellWords(std::string_view line);

[[nodiscard]] CompletionPoint completionPoint(const CLI::App& program, std::string_view line);

} // namespace kelvane::ctl
