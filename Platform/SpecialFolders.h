#pragma once

#include <optional>
#include <string>

namespace kelvane {

// Where things of the current user go. Each is an absolute path without a trailing separator, read from the
// environment at every call; a variable that is empty or relative counts as unset. No folder is made unless
// it says so. Threads that set environment variables must not run beside these.

[[nodiscard]] std::string homeFolder();
[[nodiscard]] std::string expandingTilde(const std::string& path); // "~/" in front is the home folder
[[nodiscard]] std::string configurationFolder();                   // $XDG_CONFIG_HOME or ~/.config
[[nodiscard]] std::string dataFolder();                            // $XDG_DATA_HOME or ~/.local/share
[[nodiscard]] std::string stateFolder();                           // $XDG_STATE_HOME or ~/.local/state
[[nodiscard]] std::string cacheFolder();                           // $XDG_CACHE_HOME or ~/.cache
[[nodiscard]] std::string temporaryFolder();                       // $TMPDIR or /tmp

// $XDG_RUNTIME_DIR, else "/tmp/kelvane-<uid>", which is made for it. None when that cannot be had for this
// user alone.
[[nodiscard]] std::optional<std::string> runtimeFolder();

// Where the local daemon listens and its panes look for it. None without a safe folder. A socket's path holds
// 103 bytes; a runtime folder too deep for that gives way to the one in "/tmp".
[[nodiscard]] std::optional<std::string> defaultDaemonPath();

// Where the local daemon writes its log and panes look for it.
[[nodiscard]] std::string defaultLogPath();

// Makes the folder with mode 0700, or finds it there: no link, owned by this user, and closed to everyone
// else.
[[nodiscard]] bool ensurePrivateFolder(const std::string& path);

// Makes what is missing of the path, each folder with mode 0700.
[[nodiscard]] bool ensureFolder(const std::string& path);

} // namespace kelvane
