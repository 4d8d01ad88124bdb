#pragma once

#include "LocalDaemon/Restic/Snapshots.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// Parsers for restic's JSON, which is one document or one per line. Malformed text yields no value.

// Parses a time such as "2025-01-02T03:04:05.678901234+01:00".
[[nodiscard]] std::optional<FileTime> timeFrom(std::string_view text);

// Returns a text of an object, empty when there is none with this key.
[[nodiscard]] std::string textEntry(std::string_view json, const char* key);

// Tags a complete snapshot during which an item disappeared that may have been moved to a folder that
// restic had already read. The tag does not name the item, so nothing that such a snapshot lacks counts
// as deleted.
inline constexpr std::string_view movedTag = "moved";
// The beginning of a tag that gives the order in which a computer made its snapshots; a number follows.
inline constexpr std::string_view sequenceTagStart = "sequence-";
// No computer makes more snapshots than this, so a higher number comes from another program and is
// ignored. Snapshots after the highest number share it and are ordered by parent and time.
inline constexpr std::uint64_t highestSequence = std::uint64_t{1} << 40U;
// Returns whether both are the same snapshot. The ids may differ, since adding a tag changes them.
[[nodiscard]] inline bool isSame(const Snapshot& known, const Snapshot& listed) {
    const bool isNumbered = known.sequence != 0 && known.sequence < highestSequence;
    return known.id == listed.id || (isNumbered && known.sequence == listed.sequence);
}

// Returns the snapshots oldest first, and no value when the text is not a list of snapshots.
[[nodiscard]] std::optional<std::vector<Snapshot>> snapshotsFrom(std::string_view json,
                                                                 std::string_view partialTag);

// A line of a listing is either a snapshot or an item.
[[nodiscard]] std::optional<Snapshot> snapshotFrom(std::string_view line);
struct ListedItem {
    SnapshotItem item;  // U+FFFD replaces each byte of its path that is not UTF-8.
    bool isKept = true; // It is a file, a folder or a link.
};
[[nodiscard]] std::optional<ListedItem> itemFrom(std::string_view line);
// Counts the line breaks in the paths that a snapshot was asked to save.
[[nodiscard]] std::size_t lineBreaksInPathsOf(std::string_view snapshotLine);

// An item that `restic find` reported.
struct FoundItem {
    std::string snapshotId;
    std::string path;
};
// Parses the answer of `restic find --json` for packs or blobs. Returns no value for other text.
[[nodiscard]] std::optional<std::vector<FoundItem>> foundItemsFrom(std::string_view json);

struct RepositoryLock {
    std::string id; // The name of the lock's file, which is not in the JSON.
    std::string hostName;
    std::int32_t pid = 0;
    std::int64_t time = 0; // seconds since 1970
};
[[nodiscard]] std::optional<RepositoryLock> lockFrom(std::string_view json);

// A line that a running backup prints.
struct BackupLine {
    enum class Kind {
        Other,
        Item,    // `path` was saved, or is unchanged.
        Status,  // `path` is being read.
        Summary, // The snapshot is complete.
        Error,   // `path` could not be read.
    };
    Kind kind = Kind::Other;
    std::string path;
    bool isDeleted = false;                     // Error: the file was deleted before it could be read.
    bool hasNoReason = false;                   // Error: no system call has failed.
    bool isFile = false;                        // Item: a file.
    bool isChanged = false;                     // Item: new or changed.
    std::uint64_t size = 0;                     // Item: size in bytes.
    std::uint64_t filesDone = 0, bytesDone = 0; // Status.
    std::string snapshotId;                     // Summary: the beginning of the id.
};
[[nodiscard]] BackupLine backupLineFrom(std::string_view line);

} // namespace kelvane
