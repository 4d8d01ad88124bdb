#pragma once

#include "LocalDaemon/Index/IndexKeeper.h"
#include "LocalDaemon/State/DaemonState.h"

#include <string>

namespace kelvane {

// Tells people what is wrong with the place and the key of the repository before anything is done there: an
// alert where the configuration has no valid place, and in the log a secret that others may read or change
// and a key that is missing although there is a repository. Blocks on the disk.
void checkRepositoryKey(DaemonState& state, const IndexKeeper& keeper, const std::string& configurationPath);

// Logs and raises as an alert that a key has been made, and that a copy of it must be kept. Any thread.
void announceRepositoryKey(DaemonState& state);

} // namespace kelvane
