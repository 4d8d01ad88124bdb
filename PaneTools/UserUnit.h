#pragma once

#include <string>
#include <vector>

namespace kelvane::tools {

// The local daemon as a unit of the user's service manager, which starts it at every log-in. Without a
// manager, or on older systems, the daemon runs as an ordinary process.

inline constexpr const char* daemonUnit = "kelvane-local-daemon.service";

[[nodiscard]] bool hasUserManager();
// Whether a unit file exists, installed by the package or written for the user.
[[nodiscard]] bool hasUnit();

// Makes the manager start this program at log-in, and now if `startNow`. Writes a unit file for the user if
// the package has none. This and the functions below return why they failed, or empty on success.
[[nodiscard]] std::string enableUnit(const std::string& program, bool startNow);
// Stops the daemon and no longer starts it at log-in.
[[nodiscard]] std::string disableUnit();
// Removes the user's own unit file, if there is one.
[[nodiscard]] std::string removeOwnUnit();

[[nodiscard]] std::string unitText(const std::string& program);

} // namespace kelvane::tools
