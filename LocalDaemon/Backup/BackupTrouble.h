#pragma once

#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/State/ServiceState.h"

#include <cstddef>
#include <optional>
#include <string>

namespace kelvane {

// Returns the service state that panes show for a failure of restic; none for a success or a stop by the
// daemon.
[[nodiscard]] std::optional<ServiceState> serviceStateFor(ResticTrouble trouble);

inline constexpr const char* backupAlert = "backup_trouble";
// The verb of that alert's action, which creates a repository although the disk is not mounted or a
// repository existed before.
inline constexpr const char* makeRepositoryVerb = "make-repository";

// The number of files that an alert names; others are only counted.
inline constexpr std::size_t mostNamed = 5;

// Returns an alert with the next step for the user. The trouble must have a service state.
[[nodiscard]] Alert alertFor(const ResticOutcome& outcome, const RepositoryPlace& place);

} // namespace kelvane
