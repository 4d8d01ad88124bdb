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

// Something to be put in its place: a file, a link, or a folder as it last was, with what it held then. What
// was deleted earlier, or is not selected any more, comes only when it is asked for by itself.
struct RestorePiece {
    std::size_t job = 0;
    const BackupIndex::Item* item = nullptr;
    std::string target;
    bool isFolderAlone = false; // its contents are pieces of their own
    bool hasFailures = false;   // among these
};
using RestorePieces = std::vector<RestorePiece>;

// What a folder held when it was saved last.
[[nodiscard]] std::vector<const BackupIndex::Item*> lastContents(const BackupIndex& index,
                                                                 const BackupIndex::Item& folder);
[[nodiscard]] FileTotals lastTotals(const BackupIndex& index, const BackupIndex::Item& item);

// What belongs to a folder's last contents in `before` and not in `now`, where it may still have an older
// version. Both have the folder. Of a folder that is missing as a whole only its own path.
[[nodiscard]] std::vector<std::string> goneFrom(const BackupIndex& now, const BackupIndex& before,
                                                const std::string& path);

// What is to be fetched from a snapshot. More may come than is wanted; whoever delivers takes of each item
// the snapshot that the index names.
struct SnapshotPaths {
    std::vector<std::string> whole; // files, and folders with all that the snapshot holds of them
    std::vector<std::string> foldersAlone;

    friend bool operator==(const SnapshotPaths&, const SnapshotPaths&) = default;
};
using RestorePlan = std::map<std::uint32_t, SnapshotPaths>; // by the snapshot's number

void addToPlan(RestorePlan& plan, const BackupIndex& index, const RestorePiece& piece);

// restic's arguments for one snapshot, as several calls where one would be longer than the system takes. None
// is empty.
[[nodiscard]] std::vector<std::vector<std::string>> includeArguments(const SnapshotPaths& paths);

// The paths of the index that restic's JSON would write so: several where it loses bytes of names.
[[nodiscard]] std::vector<std::string> pathsInIndex(const BackupIndex& index, std::string_view pathInJson);

// Arguments to follow those, so that none of the paths comes. As many as one call can take.
[[nodiscard]] std::vector<std::string>
exclusionArguments(const BackupIndex& index, const std::set<std::string, std::less<>>& pathsInJson);

} // namespace kelvane
