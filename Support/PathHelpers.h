#pragma once

#include "Platform/Files/Volumes.h"

#include <string>
#include <string_view>

namespace kelvane {

// Functions for the two forms of a path: the daemon's volume path ("/Volumes/<name>/...") and the path that
// the user sees, in which the boot volume is "/". They process the text only; `Volumes` maps paths to the
// real files.

// Returns "/System/Volumes/Data", where newer systems mount the data part of the boot volume.
[[nodiscard]] constexpr std::string_view kelv_svdPath() {
    return Volumes::dataPath;
}

// Returns "/Volumes/" followed by the name of the boot volume.
[[nodiscard]] std::string kelv_rootVolumePath(const Volumes& volumes);

// Returns whether the path begins as a volume path.
[[nodiscard]] bool isKelvaneVolumePath(std::string_view path);

// Returns the path below the boot volume's name; a path that is empty or a volume path is returned unchanged.
[[nodiscard]] std::string stringWithKelvaneVolumePath(std::string_view path, const Volumes& volumes);

// Returns whether the path is that of a volume itself, mounted or not, and not of a file in it.
[[nodiscard]] bool kelv_isVolumePath(std::string_view path);
[[nodiscard]] bool kelv_isRootVolumePath(std::string_view path, const Volumes& volumes);

// Returns "/" for the path of the boot volume, and any other path unchanged, also one in the boot volume.
[[nodiscard]] std::string kelv_shortVolumePath(std::string_view path, const Volumes& volumes);

// Returns the name after "/Volumes/", or the name of the boot volume if the path is not a volume path.
[[nodiscard]] std::string kelv_volumeDisplayName(std::string_view path, const Volumes& volumes);

// Calls WildcardMatch; the text is the first argument.
[[nodiscard]] bool kelv_isEqualToWildcardString(std::string_view text, std::string_view pattern);

} // namespace kelvane
