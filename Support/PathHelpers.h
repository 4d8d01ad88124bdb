#pragma once

#include "Platform/Volumes.h"

#include <string>
#include <string_view>

namespace kelvane {

// The two ways in which paths are named: the daemon's volume paths ("/Volumes/<name>/...") and the user's
// view, where the boot volume begins at "/". These work on the text alone; where a path really is, `Volumes`
// knows.

// "/System/Volumes/Data", where newer systems mount the boot volume's data part.
[[nodiscard]] constexpr std::string_view kelv_svdPath() {
    return Volumes::dataPath;
}

// "/Volumes/" and the boot volume's name.
[[nodiscard]] std::string kelv_rootVolumePath(const Volumes& volumes);

// By its beginning alone.
[[nodiscard]] bool isKelvaneVolumePath(std::string_view path);

// The path itself when it is empty or a volume path already, else the same below the boot volume's name.
[[nodiscard]] std::string stringWithKelvaneVolumePath(std::string_view path, const Volumes& volumes);

// Whether it names a whole volume, present or not, and nothing inside one.
[[nodiscard]] bool kelv_isVolumePath(std::string_view path);
[[nodiscard]] bool kelv_isRootVolumePath(std::string_view path, const Volumes& volumes);

// "/" for the boot volume itself. Only for that: a path inside it keeps its volume's name.
[[nodiscard]] std::string kelv_shortVolumePath(std::string_view path, const Volumes& volumes);

// The name after "/Volumes/", else the boot volume's.
[[nodiscard]] std::string kelv_volumeDisplayName(std::string_view path, const Volumes& volumes);

// WildcardMatch with the text first.
[[nodiscard]] bool kelv_isEqualToWildcardString(std::string_view text, std::string_view pattern);

} // namespace kelvane
