#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kelvane {

// Starts a detached program that outlives this process, without input and with this process's output.
// `arguments` starts with the program's name, searched for in PATH unless it is a path. Callable on any
// thread. Returns empty on success, or why the program could not be started.
[[nodiscard]] std::string startDetached(std::vector<std::string> arguments);

// The absolute path of a program: beside the running program, in the folder above it (as in a build), or the
// first match in PATH.
[[nodiscard]] std::optional<std::string> findProgram(const std::string& name);

} // namespace kelvane
