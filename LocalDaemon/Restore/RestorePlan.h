#pragma once

#include "LocalDaemon/Index/BackupIndex.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// An item to be restored: a file, a link, or a folder with its last contents. Items that were deleted before
// or are no longer selected are restored only when they are requested by themselves.
struct RestorePiece {
    std::size_t job = 0; // The position of the job in the list of jobs.
    const BackupIndex::Item* item = nullptr;
    std::string target;
    bool isFolderAlone = false; // Its contents are pieces of their own.
    bool hasFailures = false;   // One of its contents could not be restored.
};
using RestorePieces = std::vector<RestorePiece>;

// Returns the contents of a folder when it was last saved.
[[nodiscard]] std::vector<const BackupIndex::Item*> lastContents(const BackupIndex& index,
                                                                 const BackupIndex::Item& folder);
[[nodiscard]] FileTotals lastTotals(const BackupIndex& index, const BackupIndex::Item& item);

// Returns the paths below `path` that the last version in `before` contains and `now` does not; `now` may
// still have older versions of them. Both indexes must contain `path`. A folder that is missing entirely is
// returned without its contents.
[[nodiscard]] std::vector<std::string> goneFrom(const BackupIndex& now, const BackupIndex& before,
                                                const std::string& path);

// The paths to restore from a snapshot. More may be restored than is needed; the delivery takes each
// item from the snapshot that the index names.
struct SnapshotPaths {
    std::vector<std::string> whole; // Files, and folders with all their contents in the snapshot.
    std::vector<std::string> foldersAlone;

    friend bool operator==(const SnapshotPaths&, const SnapshotPaths&) = default;
};
using RestorePlan = std::map<std::uint32_t, SnapshotPaths>; // By the number of the snapshot.

void addToPlan(RestorePlan& plan, const BackupIndex& index, const RestorePiece& piece);

// Returns restic's arguments for one snapshot, divided into several calls when the arguments are too long for
// one. No call is empty.
[[nodiscard]] std::vector<std::vector<std::string>> includeArguments(const SnapshotPaths& paths);

// Returns the paths of the index that are written like this in restic's JSON. There may be several, since
// the JSON replaces bytes that are not UTF-8.
[[nodiscard]] std::vector<std::string> pathsInIndex(const BackupIndex& index, std::string_view pathInJson);

// Returns arguments to be added to those of `includeArguments` so that the paths are not restored; no more
// than fit into one call.
[[nodiscard]] std::vector<std::string>
exclusionArguments(const BackupIndex& index, const std::set<std::string, std::less<>>& pathsInJson);

} // namespace kelvane
