#pragma once

#include <optional>
#include <string>

namespace kelvane {

// The standard folders of the current user. Each is an absolute path without a trailing separator, read from
// the environment at every call; an empty or relative variable counts as unset. Creates no folder unless a
// function says so. No thread may set environment variables concurrently.

[[nodiscard]] std::string homeFolder();
[[nodiscard]] std::string expandingTilde(const std::string& path); // "~/" in front is the home folder
[[nodiscard]] std::string configurationFolder();                   // $XDG_CONFIG_HOME or ~/.config
[[nodiscard]] std::string dataFolder();                            // $XDG_DATA_HOME or ~/.local/share
[[nodiscard]] std::string stateFolder();                           // $XDG_STATE_HOME or ~/.local/state
[[nodiscard]] std::string cacheFolder();                           // $XDG_CACHE_HOME or ~/.cache
[[nodiscard]] std::string temporaryFolder();                       // $TMPDIR or /tmp

// $XDG_RUNTIME_DIR, or "/tmp/kelvane-<uid>", which is created. None when that folder is not private to this
// user.
[[nodiscard]] std::optional<std::string> runtimeFolder();

// The socket path of the local daemon. None without a private folder. A socket's path can have 103 bytes; if
// the runtime folder's path is too long, the one in "/tmp" is used.
[[nodiscard]] std::optional<std::string> defaultDaemonPath();

// The path of the local daemon's log.
[[nodiscard]] std::string defaultLogPath();

// Creates the folder with mode 0700, or checks that it is not a link, is owned by this user, and is closed to
// everyone else.
[[nodiscard]] bool ensurePrivateFolder(const std::string& path);

// Creates the missing folders of the path, each with mode 0700.
[[nodiscard]] bool ensureFolder(const std::string& path);

} // namespace kelvane
