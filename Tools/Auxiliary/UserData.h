#pragma once

#include <string>
#include <vector>

namespace kelvane::tools {

// Removes what Kelvane has written for this user: preferences and the daemon's settings and state, and their
// folders when nothing else is in them. Never the backup, and nothing that a package has brought. Says what
// could not be removed, a line each.
[[nodiscard]] std::vector<std::string> removeUserData();

} // namespace kelvane::tools
