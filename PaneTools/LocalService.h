#pragma once

#include <chrono>
#include <string>

namespace kelvane::tools {

// The local daemon of this user, to be started and stopped: by the user's service manager where there is one,
// else by the trampoline and over the daemon's own link. Each waits until it is so, for at most ten
// seconds, and returns why it is not; empty when it is.
//
// $KELVANE_DAEMON names the socket of another one than the usual. A local daemon that serves there is
// stopped, too; one that is to serve there is started by whoever knows how. Any other daemon is left alone.

inline constexpr std::chrono::seconds usualPatience(10);

[[nodiscard]] std::string startLocalDaemon(std::chrono::milliseconds patience = usualPatience);
[[nodiscard]] std::string stopLocalDaemon();
// While another daemon is meant: why what the usual one has written must stay. Empty when nobody serves
// there.
[[nodiscard]] std::string usualDaemonInUse();

} // namespace kelvane::tools
