#pragma once

#include <string>
#include <vector>

namespace kelvane::tools {

// Removes the files that Kelvane has written for this user: preferences, the daemon's state, log and cache,
// and their folders if these are empty. Keeps the backup itself, the daemon's configuration and key, which
// are needed to open it, and installed files. Returns what could not be removed, one line each.
[[nodiscard]] std::vector<std::string> removeUserData();

} // namespace kelvane::tools
