#pragma once

#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/State/ServiceState.h"

#include <cstddef>
#include <optional>
#include <string>

namespace kelvane {

// What panes are told when restic came to nothing. None: it went well, or we have stopped it.
[[nodiscard]] std::optional<ServiceState> serviceStateFor(ResticTrouble trouble);

inline constexpr const char* backupAlert = "backup_trouble";
// The action of that alert by which a repository is made where a disk is away or one was before.
inline constexpr const char* makeRepositoryVerb = "make-repository";

// Files that an alert names; further ones are counted.
inline constexpr std::size_t mostNamed = 5;

// With what to do next. For a trouble that has a service state.
[[nodiscard]] Alert alertFor(const ResticOutcome& outcome, const RepositoryPlace& place);

} // namespace kelvane
