#pragma once

#include "LocalDaemon/Restic/Restic.h"

#include <string>

namespace kelvane {

// Returns whether the folder contains files that a new repository would mix with, or cannot be read.
// Files made by mkfs and remains of an interrupted creation do not count. False when there is no such
// folder. Blocks on the disk.
[[nodiscard]] bool isOccupied(const std::string& folder);

// Creates the repository. restic writes the key first, so that nobody can open a repository whose
// creation was interrupted; in a local folder the repository appears complete or not at all. Nothing is
// ever created in an occupied folder (ResticTrouble::Occupied).
[[nodiscard]] ResticOutcome makeRepository(const Restic& restic, const StopSignal& stop);

} // namespace kelvane
