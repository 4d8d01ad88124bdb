#pragma once

#include "LocalDaemon/Restic/Restic.h"

#include <string>

namespace kelvane {

// Returns whether the folder contains files that a new repository would mix with, or cannot be read.
// Files made by mkfs and remains of an interrupted creation do not count. False when there is no such
// folder. Blocks on the disk.
[[nodiscard]] bool isOccupied(const std::string& folder);

// Creates the repository. restic writes the key before the file that only this key decrypts, so nobody can
// open a repository whose creation was interrupted. In a local folder the repository therefore appears
// complete or not at all. Nothing is ever created in an occupied folder (ResticTrouble::Occupied).
[[nodiscard]] ResticOutcome makeRepository(const Restic& restic, const StopSignal& stop);

} // namespace kelvane
