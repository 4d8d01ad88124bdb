#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kelvane {

// Returns the mount point, at or above the folder, of a disk that is not mounted: files written there
// would be hidden once the disk is mounted. Returns an empty string when there is none. The mount points
// of disks are those that `fstab` lists and, where nothing is mounted at or above the folder, the folders
// below /media, /run/media and /mnt.
[[nodiscard]] std::string awayMountPointOf(const std::string& folder, std::string_view fstab,
                                           const std::function<bool(const std::string&)>& isMountPoint);

// Uses the tables of this machine. Follows links; blocks on the disk.
[[nodiscard]] std::string awayMountPointOf(const std::string& folder);

} // namespace kelvane
