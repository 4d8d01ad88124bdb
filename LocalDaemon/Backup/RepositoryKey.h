#pragma once

#include "LocalDaemon/Index/IndexKeeper.h"
#include "LocalDaemon/State/Alerts.h"

#include <string>

namespace kelvane {

// Tells people what is wrong with the place and the key of the repository before anything is done there: an
// alert where the configuration has no valid place, and in the log a secret that others may read or change
// and a key that is missing although there is a repository. Blocks on the disk.
void checkRepositoryKey(const RepositoryPlace& place, const IndexKeeper& keeper, Alerts& alerts,
                        const std::string& configurationPath);

// Logs and raises as an alert that a key has been made at the path, and that a copy of it must be kept. Any
// thread.
void announceRepositoryKey(Alerts& alerts, const std::string& path);

} // namespace kelvane
