#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kelvane {

// Starts a program that is nobody's child and outlives this process, with nothing to read and this process's
// output. `arguments` begins with its name, which is looked for in PATH unless it is a path. Any thread.
// Empty, or why it could not be started.
[[nodiscard]] std::string startDetached(std::vector<std::string> arguments);

// The absolute path of a program: beside the running one, in the folder above that as in a build, or the
// first of its name in PATH.
[[nodiscard]] std::optional<std::string> findProgram(const std::string& name);

} // namespace kelvane
