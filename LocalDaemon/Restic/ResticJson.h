#pragma once

#include "LocalDaemon/Restic/Snapshots.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// What restic prints as JSON, a document or a line at a time. Text that is not of the form is none of it.

// Of "2025-01-02T03:04:05.678901234+01:00".
[[nodiscard]] std::optional<FileTime> timeFrom(std::string_view text);

// An entry of an object.
[[nodiscard]] std::string textEntry(std::string_view json, const char* key);

// Of a complete snapshot during which something went that may have been moved to where restic had been by
// then. What it was is not told: nothing that such a snapshot is without counts as deleted.
inline constexpr std::string_view movedTag = "moved";
// A tag that tells the order in which a computer has made its snapshots: a number follows.
inline constexpr std::string_view sequenceTagStart = "sequence-";
// More snapshots than that were never made: a higher number is somebody else's and does not count. What
// follows the highest has the same number, and comes after it by its parent and time.
inline constexpr std::uint64_t highestSequence = std::uint64_t{1} << 40U;
// A snapshot that gets another tag gets another id.
[[nodiscard]] inline bool isSame(const Snapshot& known, const Snapshot& listed) {
    const bool isNumbered = known.sequence != 0 && known.sequence < highestSequence;
    return known.id == listed.id || (isNumbered && known.sequence == listed.sequence);
}

// The first made first. None when it is no list of snapshots, which is another thing than an empty one.
[[nodiscard]] std::optional<std::vector<Snapshot>> snapshotsFrom(std::string_view json,
                                                                 std::string_view partialTag);

// A line of a listing is one of the two.
[[nodiscard]] std::optional<Snapshot> snapshotFrom(std::string_view line);
struct ListedItem {
    SnapshotItem item;  // in its path U+FFFD stands for each byte that is not UTF-8
    bool isKept = true; // it is a file, a folder or a link
};
[[nodiscard]] std::optional<ListedItem> itemFrom(std::string_view line);
// Of the paths that a snapshot was asked to save.
[[nodiscard]] std::size_t lineBreaksInPathsOf(std::string_view snapshotLine);

// A place where restic has found what it was asked to look for.
struct FoundItem {
    std::string snapshotId;
    std::string path;
};
// None when it is no answer of `restic find --json` for packs or blobs.
[[nodiscard]] std::optional<std::vector<FoundItem>> foundItemsFrom(std::string_view json);

struct RepositoryLock {
    std::string id; // of its file; not in the JSON
    std::string hostName;
    std::int32_t pid = 0;
    std::int64_t time = 0; // seconds since 1970
};
[[nodiscard]] std::optional<RepositoryLock> lockFrom(std::string_view json);

// A line of a backup under way.
struct BackupLine {
    enum class Kind {
        Other,
        Item,    // `path` has been saved, or found unchanged
        Status,  // `path` is being read
        Summary, // the snapshot stands
        Error,   // `path` could not be read
    };
    Kind kind = Kind::Other;
    std::string path;
    bool isDeleted = false;                     // of an error: it was deleted before it could be read
    bool hasNoReason = false;                   // of an error: the system has not refused anything
    bool isFile = false;                        // an item that is a file
    bool isChanged = false;                     // an item that is new or another than before
    std::uint64_t size = 0;                     // of an item: bytes
    std::uint64_t filesDone = 0, bytesDone = 0; // of a status
    std::string snapshotId;                     // of a summary; its beginning
};
[[nodiscard]] BackupLine backupLineFrom(std::string_view line);

} // namespace kelvane
