#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kelvane {

// Returns the mount point at or above the folder that belongs to a disk and has nothing mounted: files
// written there would be hidden once the disk is mounted. Returns an empty string when there is no such
// mount point. A disk's mount points are those listed in `fstab` and the folders below /media,
// /run/media and /mnt.
[[nodiscard]] std::string awayMountPointOf(const std::string& folder, std::string_view fstab,
                                           const std::function<bool(const std::string&)>& isMountPoint);

// Uses the tables of this machine. Follows links; blocks on the disk.
[[nodiscard]] std::string awayMountPointOf(const std::string& folder);

} // namespace kelvane
