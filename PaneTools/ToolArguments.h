#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace kelvane::tools {

// The arguments of the pane's tools. All tools work for the current user only.

// Accepts digits only; none for anything else and for numbers that overflow.
[[nodiscard]] std::optional<std::uint32_t> decimalNumber(std::string_view text);

// Whether the arguments after the program's name are "0", this user's id and the word.
[[nodiscard]] bool areSwitchArguments(int count, char** arguments, std::string_view word);

// Handles "NAME --version". Returns false for other arguments.
[[nodiscard]] bool printsVersion(int count, char** arguments, const char* name);

// Writes "NAME: reason" to standard error and returns the status.
int complain(const char* name, const std::string& reason, int status);

// The `main` of Enable and Disable: checks the arguments, runs the action and reports errors.
int runSwitch(int count, char** arguments, const char* name, const char* word, std::string (*operation)());

} // namespace kelvane::tools
