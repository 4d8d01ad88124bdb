#pragma once

#include <string>
#include <vector>

namespace kelvane::tools {

// Removes what Kelvane has written for this user: preferences, the daemon's state, log and cache, and their
// folders when nothing else is in them. Never the backup nor what tells where it is and opens it, the
// daemon's configuration and key, and nothing that a package has brought. Says what could not be removed, a
// line each.
[[nodiscard]] std::vector<std::string> removeUserData();

} // namespace kelvane::tools
