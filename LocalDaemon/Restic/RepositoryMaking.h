#pragma once

#include "LocalDaemon/Restic/Restic.h"

#include <string>

namespace kelvane {

// Whether anything stands in the folder that a repository made there would mix with, or whether nobody can
// tell. What mkfs makes, and what may be left of a making that was cut off, does not count. False when there
// is no such folder. Blocks on the disk.
[[nodiscard]] bool isOccupied(const std::string& folder);

// Makes the repository. restic writes the key before what only that opens, so that one whose making is cut
// off opens for nobody: in a folder of this machine it comes whole or not at all. Nothing is ever made in an
// occupied folder (ResticTrouble::Occupied).
[[nodiscard]] ResticOutcome makeRepository(const Restic& restic, const StopSignal& stop);

} // namespace kelvane
