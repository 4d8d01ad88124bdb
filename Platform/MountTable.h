#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/Volumes.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The volumes that a text in the form of /proc/self/mountinfo tells of: the boot volume, and what is mounted
// below /media, /mnt and /run/media, named by the last component. Kernel and memory file systems are no
// disks, and neither is a second view of the boot volume's own. Lines that make no sense are skipped.
[[nodiscard]] Volumes volumesInMountTable(std::string_view mountTable, const std::string& bootVolumeName);

// Whether a file system is mounted at exactly this path now; false when the system does not say.
[[nodiscard]] bool isMountPoint(std::string_view path);

// The mount points below the folder, in no order.
[[nodiscard]] std::vector<std::string> mountPointsBelow(std::string_view folder);

// Tells the file system that is mounted at exactly this path from all others, also after a restart: its UUID,
// or what it makes of that. Empty for one that keeps none, and when the system does not say.
[[nodiscard]] std::string fileSystemIdAt(const std::string& mountPoint);

// The volumes of this machine, read again when a mount has changed since they were last asked for. Any
// thread.
class MountedVolumes {
public:
    MountedVolumes();

    [[nodiscard]] std::shared_ptr<const Volumes> current();

private:
    std::mutex mutex_;
    FileDescriptor mountTable_; // none where there is no /proc: then every call reads
    std::shared_ptr<const Volumes> volumes_;
};

} // namespace kelvane
