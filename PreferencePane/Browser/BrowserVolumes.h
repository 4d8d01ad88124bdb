#pragma once

#include "Platform/Volumes.h"

#include <cstdint>
#include <string>

namespace kelvane {

// How a volume that the daemon calls by `fileName` stands in the first column.
struct VolumeRow {
    std::string title;
    std::string path;
};
[[nodiscard]] VolumeRow volumeRowFor(const std::string& fileName, const Volumes& volumes);

// The states of the service in which the daemon is at work on files, so that volumes may have come or gone.
[[nodiscard]] constexpr bool isAtWork(std::uint32_t serviceState) {
    constexpr std::uint32_t recoverMode = 25;
    return (serviceState >= 1 && serviceState <= 9) || serviceState == recoverMode;
}

// A path that a person has chosen or dropped, as the daemon knows paths: below a volume's name where that is
// another than the boot volume, and in the form that names have on the link.
[[nodiscard]] std::string enteredPath(const std::string& path, const Volumes& volumes);

} // namespace kelvane
