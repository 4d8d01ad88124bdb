#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kelvane {

// The mount point at or above the folder where a disk belongs and none is mounted: what is written there
// would be hidden as soon as the disk comes. Empty: there is no such mount point. A disk belongs where the
// system's table `fstab` says so, and at the folders below /media, /run/media and /mnt.
[[nodiscard]] std::string awayMountPointOf(const std::string& folder, std::string_view fstab,
                                           const std::function<bool(const std::string&)>& isMountPoint);

// The same with the tables of this machine. Follows links; blocks on the disk.
[[nodiscard]] std::string awayMountPointOf(const std::string& folder);

} // namespace kelvane
