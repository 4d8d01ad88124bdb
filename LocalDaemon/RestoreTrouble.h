#pragma once

#include "LocalDaemon/Restic.h"

#include <map>
#include <string>

namespace kelvane {

// What restic has said of single files, by their path in the snapshot.
using ErrorsByPath = std::map<std::string, std::string, std::less<>>;

// Why restic could not go on: what that means for a restore, and restic's own word.
[[nodiscard]] std::string restoreFailureFor(const ResticOutcome& outcome);

// Whether it may go better in a while. Where restic has done what it could except for single files, only when
// the way to the place was at fault, and when it is not stuck with the very files of the try before.
[[nodiscard]] bool mayPass(const ResticOutcome& outcome);
[[nodiscard]] bool mayPass(const ErrorsByPath& errors, const ErrorsByPath& before);

} // namespace kelvane
