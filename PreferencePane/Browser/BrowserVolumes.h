#pragma once

#include "Platform/Files/Volumes.h"
#include "Support/ServiceStates.h"

#include <string>

namespace kelvane {

// How a volume that the daemon calls by `fileName` stands in the first column.
struct VolumeRow {
    std::string title;
    std::string path;
};
[[nodiscard]] VolumeRow volumeRowFor(const std::string& fileName, const Volumes& volumes);

// The states of the service in which the daemon is at work on files, so that volumes may have come or gone.
[[nodiscard]] constexpr bool isAtWork(ServiceState serviceState) {
    constexpr ServiceState first{1}; // the ones around those that have names count as well
    constexpr ServiceState last{9};
    return (serviceState >= first && serviceState <= last) || serviceState == ServiceState::RecoverMode;
}

// A path that a person has chosen or dropped, as the daemon knows paths: below a volume's name where that is
// another than the boot volume, and in the form that names have on the link.
[[nodiscard]] std::string enteredPath(const std::string& path, const Volumes& volumes);

} // namespace kelvane
