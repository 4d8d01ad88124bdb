#pragma once

#include "LocalDaemon/Index/FileTotals.h"
#include "LocalDaemon/Restic/Snapshots.h"

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The regular files of a folder, and the pending ones of these and of its other entries.
struct FolderCounts {
    FileTotals files;               // A file with several names counts once for each.
    FileTotals waiting;             // The pending ones of `files`.
    std::uint64_t otherWaiting = 0; // Pending links, empty folders, attributes of folders, and deletions.

    FolderCounts& operator+=(const FolderCounts& other) {
        files += other.files;
        waiting += other.waiting;
        otherWaiting += other.otherWaiting;
        return *this;
    }
    FolderCounts& operator-=(const FolderCounts& other) {
        files -= other.files;
        waiting -= other.waiting;
        otherWaiting -= other.otherWaiting;
        return *this;
    }
    [[nodiscard]] bool isWaiting() const { return waiting.count > 0 || otherWaiting > 0; }
    friend bool operator==(const FolderCounts&, const FolderCounts&) = default;
};

// The direct contents of a folder.
struct FolderContents {
    int error = 0; // An error number; 0 when everything could be read.
    FolderCounts own;
    std::vector<std::string> subfolders; // Sorted.
    // Folders of other file systems, which are not counted.
    std::vector<std::string> mountPoints;
    bool isEmpty = true; // The folder has no entries at all, counted or not.
    // Pending links for which `isTargetLost` is true; they stay pending for ever.
    std::vector<std::string> lossyLinks;
    // Modification time of the folder itself.
    FileTime modified = {};
    FileTime changed = {};
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint16_t mode = 0; // The permissions.
};

// A file or link in the folder.
struct FolderEntry {
    std::string_view name;
    ItemKind kind = ItemKind::File;
    std::uint64_t size = 0;
    FileTime modified = {};
    FileTime changed = {};
};
// Returns whether an entry is pending.
using Waiting = std::function<bool(const FolderEntry& entry)>;

// How an entry of a folder is counted.
enum class MountPolicy {
    Refused,
    MountPoint,       // Another file system, which may not respond and is not accessed.
    WithinFileSystem, // Selected unless it is on another file system than the folder; a subvolume is not.
    AnyFileSystem,
};
using EntryFilter = std::function<MountPolicy(std::string_view name)>;

// These functions block on the disk; any thread. They end early, with an incomplete result, once
// `stopping` is set. A link as the last component of the path is refused (ELOOP, ENOTDIR).

// Returns whether restic cannot save the target of a link: it writes targets as JSON, in which U+FFFD
// replaces each byte that is not UTF-8. Returns false for other items and for unreadable ones.
[[nodiscard]] bool isTargetLost(const std::string& path);

// Returns whether the folder is encrypted by its file system, even if the key is not available.
[[nodiscard]] bool isEncrypted(const std::string& folder);

[[nodiscard]] FolderContents contentsOfFolder(const std::string& path, const std::atomic<bool>& stopping,
                                              const EntryFilter& entryFilter, const Waiting& isWaiting);

// Returns the totals of all readable files in the folder and below it on its file system.
[[nodiscard]] FileTotals totalsBelow(const std::string& path, const std::atomic<bool>& stopping);

} // namespace kelvane
