#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/State/DaemonState.h"
#include "Platform/FileSystem.h"

#include <cstdint>

namespace kelvane {

// What panes change in the rules. Any thread; they block on the disk, before and after the change and never
// with the state's mutex held. Saved when they return. Paths come as PathEntrance takes them, and the rule
// stands at the path without links: it holds however the file is reached.

// These answer 0, or errno's number: EINVAL for a path that makes no sense or a whole volume, which panes do
// not exclude; ENOENT where nothing is, or for what is not excluded; ENOSPC when there are too many rules.
[[nodiscard]] std::uint32_t excludeFile(DaemonState& state, const FileSystem& fileSystem, const Value& path);
[[nodiscard]] std::uint32_t unexcludeFile(DaemonState& state, const FileSystem& fileSystem,
                                          const Value& path);

// Entering manual mode for the first time keeps what automatic mode backs up; later times find the manual
// selection as it was left.
void setAutomaticMode(DaemonState& state, bool isAutomatic);

// All or, which is logged, none of the paths: for the reasons above, but volumes may be added, and what is
// gone may be removed.
void markFiles(DaemonState& state, const FileSystem& fileSystem, const Array& paths, PathRules::Mark mark);

} // namespace kelvane
