#pragma once

#include "LocalDaemon/Index/FileTotals.h"
#include "LocalDaemon/Restic/Snapshots.h"

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The numbers of a folder's regular files and of its pending items.
struct FolderCounts {
    FileTotals files;               // A file with several names counts once for each.
    FileTotals pending;             // The pending ones of `files`.
    std::uint64_t otherPending = 0; // Pending links, empty folders, attributes of folders, and deletions.

    FolderCounts& operator+=(const FolderCounts& other) {
        files += other.files;
        pending += other.pending;
        otherPending += other.otherPending;
        return *this;
    }
    FolderCounts& operator-=(const FolderCounts& other) {
        files -= other.files;
        pending -= other.pending;
        otherPending -= other.otherPending;
        return *this;
    }
    [[nodiscard]] bool isPending() const { return pending.count > 0 || otherPending > 0; }
    friend bool operator==(const FolderCounts&, const FolderCounts&) = default;
};

// The direct contents of a folder.
struct FolderContents {
    int error = 0; // The value of errno; 0 when everything could be read.
    FolderCounts own;
    std::vector<std::string> subfolders; // Sorted.
    // Folders of other file systems, which are not counted.
    std::vector<std::string> mountPoints;
    bool isEmpty = true; // The folder has no entries at all, counted or not.
    // Pending links for which `isTargetLost` is true; they stay pending for ever.
    std::vector<std::string> lossyLinks;
    // The attributes of the folder itself.
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
using EntryPredicate = std::function<bool(const FolderEntry& entry)>;

// How an entry of a folder is counted.
enum class MountPolicy {
    Refused,          // Not counted.
    MountPoint,       // Not counted; another file system, which may not respond and is not accessed.
    WithinFileSystem, // Counted if it is on the folder's own file system; a subvolume of it is.
    AnyFileSystem,    // Counted on any file system.
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
                                              const EntryFilter& entryFilter,
                                              const EntryPredicate& isPending);

// Returns the totals of all readable files in the folder and below it on its file system.
[[nodiscard]] FileTotals totalsBelow(const std::string& path, const std::atomic<bool>& stopping);

} // namespace kelvane
