#pragma once

#include "Platform/Files/Volumes.h"

#include <optional>
#include <string>

namespace kelvane::ctl {

// Converts a path to the form that the daemon uses, which begins with the volume's name. A relative path
// begins at the working folder, "." is dropped, and ".." after a link leaves the folder that the link leads
// to, as in the kernel. A path in an unknown volume is not changed, since the backup may contain it. A name
// is taken byte for byte or, when no such file exists, as the printed form of a name.
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
// keeps the volume's name.
[[nodiscard]] std::string shownPath(const std::string& volumePath);

inline constexpr const char* unknownPath = "the daemon does not know this path";

} // namespace kelvane::ctl
