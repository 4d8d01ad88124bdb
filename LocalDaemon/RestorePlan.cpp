#include "LocalDaemon/RestorePlan.h"

#include "LocalDaemon/Restic.h"

namespace kelvane {
namespace {

// restic compares every name on the way with every pattern.
constexpr std::size_t mostPatterns = 500;          // of one call
constexpr std::size_t mostArgumentBytes = 100'000; // a single argument may have 128 KiB, all of them 2 MiB

// A snapshot that holds a folder holds all of its contents that the index counts to it, and no newer one can
// hold anything below the folder: what is still missing then is older.
void addOlder(SnapshotPaths& plan, const BackupIndex& index, const BackupIndex::Item& folder) {
    for (const BackupIndex::Item& child : index.children(folder)) {
        if (child.snapshot != folder.snapshot && child.snapshot != 0)
            plan[child.snapshot].push_back(index.pathOf(child));
        addOlder(plan, index, child);
    }
}

} // namespace

void addToPlan(SnapshotPaths& plan, const BackupIndex& index, const BackupIndex::Item& item) {
    SnapshotPaths added;
    if (item.snapshot != 0)
        added[item.snapshot].push_back(index.pathOf(item));
    addOlder(added, index, item);
    for (const auto& [snapshot, paths] : added)
        plan[snapshot].insert(plan[snapshot].end(), paths.begin(), paths.end());
}

std::vector<std::vector<std::string>> includeArguments(const std::vector<std::string>& paths) {
    std::vector<std::vector<std::string>> calls;
    std::size_t bytes = 0;
    for (const std::string& path : paths) {
        const std::string pattern = escapedForPattern(path);
        bytes += pattern.size();
        if (calls.empty() || bytes > mostArgumentBytes || calls.back().size() >= 2 * mostPatterns) {
            calls.emplace_back();
            bytes = pattern.size();
        }
        calls.back().insert(calls.back().end(), {"--include", pattern});
    }
    return calls;
}

} // namespace kelvane
