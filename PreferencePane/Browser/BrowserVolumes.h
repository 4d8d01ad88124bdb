#pragma once

#include "Platform/Files/Volumes.h"
#include "Support/ServiceStates.h"

#include <string>

namespace kelvane {

// The first column's row for a volume that the daemon calls `fileName`.
struct VolumeRow {
    std::string title;
    std::string path;
};
[[nodiscard]] VolumeRow volumeRowFor(const std::string& fileName, const Volumes& volumes);

// States in which the daemon works on files, so volumes may have appeared or disappeared.
[[nodiscard]] constexpr bool volumesMayHaveChanged(ServiceState serviceState) {
    constexpr ServiceState first{1}; // unnamed states between the named ones count as well
    constexpr ServiceState last{9};
    return (serviceState >= first && serviceState <= last) || serviceState == ServiceState::RecoverMode;
}

// Converts a path that the user chose or dropped to the daemon's form: below the volume's name unless on the
// boot volume, and as text, which is what the link carries.
[[nodiscard]] std::string enteredPath(const std::string& path, const Volumes& volumes);

} // namespace kelvane
