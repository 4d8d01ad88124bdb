#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace kelvane::tools {

// What the pane's tools are told. All of them work for the user who runs them and nobody else.

// Digits only; none for everything else and for what does not fit.
[[nodiscard]] std::optional<std::uint32_t> decimalNumber(std::string_view text);

// Whether the arguments behind the program's name are "0", this user's id and the word.
[[nodiscard]] bool areSwitchArguments(int count, char** arguments, std::string_view word);

// For "NAME --version": prints it. False when that is not what was asked for.
[[nodiscard]] bool printsVersion(int count, char** arguments, const char* name);

// Writes "NAME: reason" to standard error and gives the status back.
int complain(const char* name, const std::string& reason, int status);

// For `main` of Enable and Disable: does it when the arguments are right, and says what went wrong.
int runSwitch(int count, char** arguments, const char* name, const char* word, std::string (*operation)());

} // namespace kelvane::tools
