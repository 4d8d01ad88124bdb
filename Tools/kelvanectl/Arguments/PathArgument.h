#pragma once

#include "Platform/Files/Volumes.h"

#include <optional>
#include <string>

namespace kelvane::ctl {

// The path as the daemon is asked for it, below its volume's name: what is relative begins at the working
// folder, "." is dropped, and ".." leaves the folder that a link stands for, as it does for the system. A
// path in a volume that is not there stays as it is: the backup may hold it. A name is taken byte for byte,
// or, when nothing of that name is there, as commands print it.
//
// Throws CLI::ParseError for the empty path.
[[nodiscard]] std::string volumePathFromText(const std::string& text, const Volumes& volumes);

// Both interpretations of a name.
struct PathReadings {
    std::string asTyped;
    std::optional<std::string> asPrinted; // None when it cannot be the printed form of another name.
};
[[nodiscard]] PathReadings pathReadings(const std::string& text, const Volumes& volumes);

// Returns the real path of the daemon's volume path, escaped for a terminal. A path in an unknown volume
// is not changed.
[[nodiscard]] std::string shownPath(const std::string& volumePath);

inline constexpr const char* unknownPath = "the daemon does not know this path";

} // namespace kelvane::ctl
