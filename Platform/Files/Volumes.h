#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

struct Volume {
    std::string name;
    std::string mountPoint; // where it really is: "/" or "/media/joe/Disk"
};

// Names for the volumes that `names` are proposed for, the boot volume first: none empty or with a "/" or an
// ASCII control in it, all of them UTF-8, no two alike (the second "Disk" becomes "Disk 2"). A name that
// cannot be used at all gives way to "System" for the boot volume and "Volume" for another.
[[nodiscard]] std::vector<std::string> cleanedVolumeNames(const std::vector<std::string>& names);

// The disks of this machine under the names by which pane and daemon know them. "/Volumes/<name>" is a name
// and not a folder: this maps it to the mount point and back, also for what is inside a volume.
// "/System/Volumes/Data" is another name of the boot volume.
//
// A value that does not change: any thread may ask. Paths are compared as they stand; "." and ".." are names.
class Volumes {
public:
    static constexpr std::string_view dataPath = "/System/Volumes/Data";

    // The boot volume alone. Its mount point is always "/"; names are cleaned.
    explicit Volumes(const std::string& bootVolumeName = {}, std::vector<Volume> others = {});
    // As they are mounted now. See MountedVolumes for who keeps them.
    [[nodiscard]] static Volumes current();

    // The boot volume is the first.
    [[nodiscard]] const std::vector<Volume>& all() const { return volumes_; }
    [[nodiscard]] const Volume& bootVolume() const { return volumes_.front(); }
    // Null when there is none of that name.
    [[nodiscard]] const Volume* volumeNamed(std::string_view name) const;

    // "/Volumes/Disk/a" for "/Volumes/Disk/a", "/media/joe/Disk/a" and "/Volumes/System/media/joe/Disk/a"
    // alike; a relative path and a path in a volume that is not there stay as they are.
    [[nodiscard]] std::string volumePath(std::string_view path) const;
    // "/media/joe/Disk/a" for each of those. None for a path in a volume that is not there, and for one with
    // a zero byte, which the system would take for another path.
    [[nodiscard]] std::optional<std::string> realPath(std::string_view path) const;

    // The mount point of the volume that holds the path, as pane and daemon speak of it: "/" for the boot
    // volume,
    // "/Volumes/<name>" for another. None where `realPath` has none.
    [[nodiscard]] std::optional<std::string> mountPointOf(std::string_view path) const;
    [[nodiscard]] std::string mountPointName(const Volume& volume) const;

private:
    [[nodiscard]] const Volume& volumeHolding(std::string_view realPath) const;

    std::vector<Volume> volumes_;
};

} // namespace kelvane
