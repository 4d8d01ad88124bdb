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

// Makes names of volumes valid and unique, the boot volume first: not empty, UTF-8, without "/" and ASCII
// control characters, and no two alike (the second "Disk" becomes "Disk 2"). An unusable name becomes
// "System" for the boot volume and "Volume" for another.
[[nodiscard]] std::vector<std::string> cleanedVolumeNames(const std::vector<std::string>& names);

// The disks of this machine under the names that pane and daemon use. "/Volumes/<name>" is a name and not a
// folder; this class maps it, and paths below it, to the mount point and back. "/System/Volumes/Data" is
// another name of the boot volume.
//
// Immutable: any thread may read it. Paths are compared as text; "." and ".." are names.
class Volumes {
public:
    static constexpr std::string_view dataPath = "/System/Volumes/Data";

    // By default the boot volume alone. Its mount point is always "/"; names are cleaned.
    explicit Volumes(const std::string& bootVolumeName = {}, std::vector<Volume> others = {});
    // Reads the mounted volumes. MountedVolumes caches them.
    [[nodiscard]] static Volumes current();

    // The boot volume is the first.
    [[nodiscard]] const std::vector<Volume>& all() const { return volumes_; }
    [[nodiscard]] const Volume& bootVolume() const { return volumes_.front(); }
    // Null when no volume has that name.
    [[nodiscard]] const Volume* volumeNamed(std::string_view name) const;

    // Maps "/Volumes/Disk/a", "/media/joe/Disk/a" and "/Volumes/System/media/joe/Disk/a" to
    // "/Volumes/Disk/a"; does not change a relative path or a path in a volume that is not mounted.
    [[nodiscard]] std::string volumePath(std::string_view path) const;
    // Maps each of those to "/media/joe/Disk/a". None for a path in a volume that is not mounted, and for one
    // with a NUL byte, where the system would end the path.
    [[nodiscard]] std::optional<std::string> realPath(std::string_view path) const;

    // The mount point of the volume that holds the path, in the form that pane and daemon exchange: "/" for
    // the boot volume, "/Volumes/<name>" for another. None where `realPath` gives none.
    [[nodiscard]] std::optional<std::string> mountPointOf(std::string_view path) const;
    [[nodiscard]] std::string mountPointName(const Volume& volume) const;

private:
    [[nodiscard]] const Volume& volumeHolding(std::string_view realPath) const;

    std::vector<Volume> volumes_;
};

} // namespace kelvane
