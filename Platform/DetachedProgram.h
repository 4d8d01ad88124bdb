#pragma once

#include <string>
#include <vector>

namespace kelvane {

// Starts a program that is nobody's child and outlives this process, with nothing to read and this process's
// output. `arguments` begins with its name, which is looked for in PATH unless it is a path. Any thread.
// Empty, or why it could not be started.
[[nodiscard]] std::string startDetached(std::vector<std::string> arguments);

// The program of this name beside the running one, or in the folder above it as in a build; else the name
// alone.
[[nodiscard]] std::string programBesideThis(const std::string& name);

} // namespace kelvane
