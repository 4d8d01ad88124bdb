#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::ctl {

// The place in a command line, which ends there, where a shell asks what may come.
struct CompletionPoint {
    const CLI::App* command = nullptr;    // to which the word belongs
    std::vector<std::string> arguments{}; // of the command, before the word
    const CLI::Option* option = nullptr;  // whose value the word is; null: it is none
    std::string word{};                   // as far as it is typed, without quotes
    std::string before{};                 // "--to=" where the word only begins behind that
    bool takesOptions = true;             // no "--" has come
    std::optional<std::string> daemonPath{};
};

// The words of a shell's command line, without their quotes; the last one is where it ends, and may be empty.
[[nodiscard]] std::vector<std::string> shellWords(std::string_view line);

[[nodiscard]] CompletionPoint completionPoint(const CLI::App& program, std::string_view line);

} // namespace kelvane::ctl
