#pragma once

#include <chrono>
#include <string>

namespace kelvane::tools {

// Starts and stops the local daemon of this user: through the user's service manager where there is one,
// otherwise with the trampoline and over the daemon's link. Both functions block until the daemon accepts
// connections or has stopped, for at most ten seconds, and return why it failed, or empty on success.
//
// $KELVANE_DAEMON names a socket other than the default. A local daemon at such a socket can be stopped but
// is not started here. Any other daemon is left alone.

inline constexpr std::chrono::seconds defaultTimeout(10);

[[nodiscard]] std::string startLocalDaemon(std::chrono::milliseconds timeout = defaultTimeout);
[[nodiscard]] std::string stopLocalDaemon();
// With $KELVANE_DAEMON naming another socket: why the files of the daemon at the default socket must not be
// removed. Empty when no daemon is listening there.
[[nodiscard]] std::string defaultDaemonInUse();

} // namespace kelvane::tools
