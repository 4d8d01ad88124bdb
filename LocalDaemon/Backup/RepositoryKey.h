#pragma once

#include "LocalDaemon/Index/IndexKeeper.h"
#include "LocalDaemon/State/Alerts.h"

#include <string>

namespace kelvane {

// Checks the location and the key of the repository before the first access. Raises an alert when the
// configuration has no valid location, and logs when others may read or change a secret, and when the
// key of an existing repository is missing. Blocks on the disk.
void checkRepositoryKey(const RepositoryPlace& place, const IndexKeeper& keeper, Alerts& alerts,
                        const std::string& configurationPath);

// Logs, and raises as an alert, that a key was created at the path and that the user must keep a copy of
// it. Any thread.
void announceRepositoryKey(Alerts& alerts, const std::string& path);

} // namespace kelvane
