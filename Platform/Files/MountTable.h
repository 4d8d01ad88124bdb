#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/Files/Volumes.h"

#include <chrono>
#include <map>
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

// Whether an entry of a folder (a descriptor, or AT_FDCWD) belongs to another file system than the folder as
// the root of a mount, and not as a subvolume of the same one. Asks no mount; true when the system does not
// say.
[[nodiscard]] bool isMountRoot(int folder, const char* name);

// The types of what is mounted, by mount point.
using MountPoints = std::map<std::string, std::string, std::less<>>;

// What a text in the form of /proc/self/mountinfo tells of, except for what other mounts hide.
[[nodiscard]] MountPoints mountPointsInTable(std::string_view mountTable);

// What is mounted now, read again when a mount has changed since it was last asked for. Asks no mount. Any
// thread.
[[nodiscard]] std::shared_ptr<const MountPoints> currentMountPoints();

// The mount that a path is at or below; the end when it is none of these.
[[nodiscard]] MountPoints::const_iterator mountAround(const MountPoints& points, std::string_view path);

// The type of the file system that a path is in; empty when the system does not say. Asks no mount.
[[nodiscard]] std::string typeOfMountAround(std::string_view path);

// Whether a file system of that type lies on another machine or in a program: it may never answer, and tells
// of no change that is made there.
[[nodiscard]] bool isRemote(std::string_view type);

// For how long what is mounted there has not answered; 0 when it answers at once. Any thread; none waits
// longer than half a second.
[[nodiscard]] std::chrono::milliseconds silenceOf(const std::string& mountPoint);
[[nodiscard]] bool isAnswering(const std::string& mountPoint);

// The mount point of the remote file system that a path is in, when that has not answered for that long; else
// empty.
[[nodiscard]] std::string silentMountAround(std::string_view path,
                                            std::chrono::milliseconds silence = std::chrono::milliseconds(1));

// Tells what is mounted at exactly this path from all else, also after a restart: its folder within the file
// system, a blank, and the file system's UUID, or what it makes of that; of one that is on no device its type
// and source. Empty when the system does not say, or not yet.
[[nodiscard]] std::string fileSystemIdAt(const std::string& mountPoint);

// Whether the mount table may have changed since that was last asked for.
class MountTableChanges {
public:
    MountTableChanges();

    [[nodiscard]] bool take();

private:
    FileDescriptor table_; // none where there is no /proc
};

// The volumes of this machine, read again when a mount or the label of the boot volume has changed since they
// were last asked for. Any thread.
class MountedVolumes {
public:
    [[nodiscard]] std::shared_ptr<const Volumes> current();

private:
    std::mutex mutex_;
    MountTableChanges changes_;
    std::string bootLabel_;
    std::shared_ptr<const Volumes> volumes_;
};

} // namespace kelvane
