#pragma once

#include "LocalDaemon/Index/FileTotals.h"
#include "LocalDaemon/Restic/Snapshots.h"

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The regular files of a folder, and what of them and of what else it holds is to be backed up yet.
struct FolderCounts {
    FileTotals files;               // a file with two names counts under each
    FileTotals waiting;             // of those
    std::uint64_t otherWaiting = 0; // links, empty folders, folders' own attributes, and deletions

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

// What one folder holds by itself.
struct FolderContents {
    int error = 0; // errno's number; 0: all of it could be read
    FolderCounts own;
    std::vector<std::string> subfolders; // sorted
    // Folders of other file systems, which do not count.
    std::vector<std::string> mountPoints;
    bool isEmpty = true;                 // there is nothing at all in it, whatever counts
    std::vector<std::string> lossyLinks; // those that `isTargetLost` is true of; they wait for ever
    // Of the folder itself.
    FileTime modified = {};
    FileTime changed = {};
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint16_t mode = 0; // the permissions
};

// A file or link as it stands in its folder.
struct FolderEntry {
    std::string_view name;
    ItemKind kind = ItemKind::File;
    std::uint64_t size = 0;
    FileTime modified = {};
    FileTime changed = {};
};
// Whether it is to be backed up yet.
using Waiting = std::function<bool(const FolderEntry& entry)>;

// What of a folder's entries counts.
enum class Passage {
    Refused,
    MountPoint,       // another file system, which may never answer and is not asked
    WithinFileSystem, // unless it belongs to another file system than the folder; subvolumes do not
    AnyFileSystem,
};
using Sieve = std::function<Passage(std::string_view name)>;

// These block on the disk; any thread. They end early, with less than there is, once `stopping` is set. A
// link in the last component of the path is refused (ELOOP, ENOTDIR).

// Whether restic loses the target of a link: it writes targets as JSON text, where U+FFFD takes the place of
// each byte that is not UTF-8. False of anything else and of what cannot be read.
[[nodiscard]] bool isTargetLost(const std::string& path);

// Whether the file system encrypts what is in the folder, with its key or without.
[[nodiscard]] bool isEncrypted(const std::string& folder);

[[nodiscard]] FolderContents contentsOfFolder(const std::string& path, const std::atomic<bool>& stopping,
                                              const Sieve& sieve, const Waiting& isWaiting);

// All files in the folder and below it in its file system, as far as they can be read.
[[nodiscard]] FileTotals totalsBelow(const std::string& path, const std::atomic<bool>& stopping);

} // namespace kelvane
