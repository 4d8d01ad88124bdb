#pragma once

#include <string>
#include <vector>

namespace kelvane::tools {

// The local daemon as a unit of the user's service manager, which starts it at every log-in. Who has none, or
// an older system, has the daemon as a process of its own instead.

inline constexpr const char* daemonUnit = "kelvane-local-daemon.service";

[[nodiscard]] bool hasUserManager();
// Whether there is a unit file, the package's or the user's own.
[[nodiscard]] bool hasUnit();

// Has the manager start this program. Writes the user's own unit file where the package has brought none.
// Why it failed, empty when it did not.
[[nodiscard]] std::string enableUnit(const std::string& program, bool startNow);
[[nodiscard]] std::string disableUnit();
// The user's own, if there is one.
[[nodiscard]] std::string removeOwnUnit();

[[nodiscard]] std::string unitText(const std::string& program);

} // namespace kelvane::tools
