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

// The volumes in a text of the form of /proc/self/mountinfo: the boot volume, and everything mounted below
// /media, /mnt and /run/media, named by its last component. Kernel and memory file systems are left out, and
// so are second mounts of the boot volume. Malformed lines are skipped.
[[nodiscard]] Volumes volumesInMountTable(std::string_view mountTable, const std::string& bootVolumeName);

// Whether a file system is mounted at exactly this path now; false when unknown.
[[nodiscard]] bool isMountPoint(std::string_view path);

// Whether an entry of a folder (a descriptor, or AT_FDCWD) is a mount point, and not a subvolume of the
// folder's file system. Does not access the mount; true when unknown.
[[nodiscard]] bool isMountRoot(int folder, const char* name);

// File system types by mount point.
using MountPoints = std::map<std::string, std::string, std::less<>>;

// The mounts in a text of the form of /proc/self/mountinfo, without those that other mounts hide.
[[nodiscard]] MountPoints mountPointsInTable(std::string_view mountTable);

// The current mounts, read again when the mount table has changed. Does not access the mounts. Callable on
// any thread.
[[nodiscard]] std::shared_ptr<const MountPoints> currentMountPoints();

// The mount that contains a path; the end when none does.
[[nodiscard]] MountPoints::const_iterator mountAround(const MountPoints& points, std::string_view path);

// The type of the file system that contains a path; empty when unknown. Does not access the mount.
[[nodiscard]] std::string typeOfMountAround(std::string_view path);

// Whether a file system of that type is on another machine or served by a program: it may never answer, and
// reports no changes made there.
[[nodiscard]] bool isRemote(std::string_view type);

// Returns how long the mount has not answered; 0 when it answers within half a second, and half a second when
// no process can be started to find out. Callable on any thread; waits for half a second at most.
[[nodiscard]] std::chrono::milliseconds silenceOf(const std::string& mountPoint);
[[nodiscard]] bool isAnswering(const std::string& mountPoint);

// The mount point of the remote file system that contains a path, if that has not answered for that time;
// otherwise empty.
[[nodiscard]] std::string silentMountAround(std::string_view path,
                                            std::chrono::milliseconds silence = std::chrono::milliseconds(1));

// Identifies what is mounted at exactly this path, also after a reboot: the mounted folder within the file
// system, a blank, and the file system's UUID or, for ext, the id that it derives from the UUID; for a file
// system without a device, its type and source. Empty when unknown or not known yet.
[[nodiscard]] std::string fileSystemIdAt(const std::string& mountPoint);

// Detects changes of the mount table. `take` returns true when it may have changed since the last `take`, or
// since this object was created; always true without /proc.
class MountTableChanges {
public:
    MountTableChanges();

    [[nodiscard]] bool take();

private:
    FileDescriptor table_;
};

// The volumes of this machine, read again when a mount or the label of the boot volume has changed. Callable
// on any thread.
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
