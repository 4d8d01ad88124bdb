#include "LocalDaemon/Restore/RestorePlan.h"

#include "LocalDaemon/Index/LeftOut.h"
#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/Restic/ResticNames.h"

#include <algorithm>

namespace kelvane {
namespace {

// restic compares each component of a path with every pattern.
constexpr std::size_t mostPatterns = 500; // Patterns of one call.
// Linux allows 128 KiB for a single argument and 2 MiB for all of them.
constexpr std::size_t mostArgumentBytes = 100'000;
constexpr std::size_t mostExclusionBytes = 1'000'000;

// Adds those of a folder's last contents that are in other snapshots. Contents in the folder's own snapshot
// are restored with the folder.
void addOlder(RestorePlan& plan, const BackupIndex& index, const BackupIndex::Item& folder) {
    for (const BackupIndex::Item* const child : lastContents(index, folder)) {
        if (child->snapshot != folder.snapshot && child->snapshot != 0)
            plan[child->snapshot].whole.push_back(index.pathOf(*child));
        addOlder(plan, index, *child);
    }
}

class Calls {
public:
    void add(const std::vector<std::string>& patterns) {
        std::size_t more = 0;
        for (const std::string& pattern : patterns)
            more += pattern.size();
        if (all_.empty() || bytes_ + more > mostArgumentBytes || all_.back().size() >= 2 * mostPatterns)
            begin();
        for (const std::string& pattern : patterns)
            all_.back().insert(all_.back().end(), {"--include", pattern});
        bytes_ += more;
    }
    void begin() {
        all_.emplace_back();
        bytes_ = 0;
    }
    std::vector<std::vector<std::string>> take() { return std::move(all_); }

private:
    std::vector<std::vector<std::string>> all_;
    std::size_t bytes_ = 0;
};

} // namespace

std::vector<const BackupIndex::Item*> lastContents(const BackupIndex& index,
                                                   const BackupIndex::Item& folder) {
    std::vector<const BackupIndex::Item*> contents;
    for (const BackupIndex::Item& child : index.children(folder))
        if (!wasDeleted(index, folder, child))
            contents.push_back(&child);
    return contents;
}

std::vector<std::string> goneFrom(const BackupIndex& now, const BackupIndex& before,
                                  const std::string& path) {
    struct Pair {
        const BackupIndex::Item* now;
        const BackupIndex::Item* before;
    };
    std::vector<std::string> gone;
    std::vector<Pair> left{{now.find(path), before.find(path)}};
    while (!left.empty()) {
        const Pair pair = left.back();
        left.pop_back();
        std::map<std::string_view, const BackupIndex::Item*> present;
        for (const BackupIndex::Item* const child : lastContents(now, *pair.now))
            present.emplace(now.nameOf(*child), child);
        for (const BackupIndex::Item* const child : lastContents(before, *pair.before))
            if (const auto same = present.find(before.nameOf(*child)); same != present.end())
                left.push_back({same->second, child});
            else
                gone.push_back(before.pathOf(*child));
    }
    return gone;
}

FileTotals lastTotals(const BackupIndex& index, const BackupIndex::Item& item) {
    FileTotals totals;
    if (item.kind == ItemKind::File)
        totals = {1, item.size};
    for (const BackupIndex::Item* const child : lastContents(index, item)) {
        const FileTotals more = lastTotals(index, *child);
        totals.count += more.count;
        totals.bytes += more.bytes;
    }
    return totals;
}

void addToPlan(RestorePlan& plan, const BackupIndex& index, const RestorePiece& piece) {
    RestorePlan added;
    if (piece.item->snapshot != 0) {
        SnapshotPaths& paths = added[piece.item->snapshot];
        (piece.isFolderAlone ? paths.foldersAlone : paths.whole).push_back(index.pathOf(*piece.item));
    }
    if (!piece.isFolderAlone)
        addOlder(added, index, *piece.item);
    for (const auto& [number, paths] : added) {
        std::ranges::copy(paths.whole, std::back_inserter(plan[number].whole));
        std::ranges::copy(paths.foldersAlone, std::back_inserter(plan[number].foldersAlone));
    }
}

std::vector<std::vector<std::string>> includeArguments(const SnapshotPaths& paths) {
    Calls calls;
    // A nested folder is included again by the patterns after those of the outer one.
    std::vector<std::string> folders = paths.foldersAlone;
    std::ranges::sort(folders);
    for (const std::string& path : folders) {
        const std::string pattern = escapedForPattern(path);
        calls.add({pattern, '!' + pattern + "/*"});
    }
    if (!folders.empty() && !paths.whole.empty())
        calls.begin();
    for (const std::string& path : paths.whole)
        calls.add({escapedForPattern(path)});
    return calls.take();
}

std::vector<std::string> pathsInIndex(const BackupIndex& index, std::string_view pathInJson) {
    std::vector<const BackupIndex::Item*> level{&index.root()};
    while (!level.empty() && pathInJson.size() > 1) {
        pathInJson.remove_prefix(1);
        const std::string_view name = pathInJson.substr(0, pathInJson.find('/'));
        pathInJson.remove_prefix(name.size());
        std::vector<const BackupIndex::Item*> next;
        for (const BackupIndex::Item* const folder : level)
            if (!mayHaveLostBytes(name)) {
                if (const BackupIndex::Item* const child = index.child(folder, name))
                    next.push_back(child);
            } else {
                for (const BackupIndex::Item& child : index.children(*folder))
                    if (nameInResticJson(index.nameOf(child)) == name)
                        next.push_back(&child);
            }
        level = std::move(next);
    }
    std::vector<std::string> paths;
    for (const BackupIndex::Item* const item : level)
        paths.push_back(index.pathOf(*item));
    return paths;
}

std::vector<std::string> exclusionArguments(const BackupIndex& index,
                                            const std::set<std::string, std::less<>>& pathsInJson) {
    constexpr std::string_view lostByte = "\ufffd";
    std::vector<std::string> arguments;
    std::size_t bytes = 0;
    for (const std::string& path : pathsInJson) {
        std::vector<std::string> patterns = pathsInIndex(index, path);
        for (std::string& pattern : patterns)
            pattern = escapedForPattern(pattern);
        if (patterns.empty()) { // An older version, which the index lacks: "?" matches each lost byte.
            std::string pattern = escapedForPattern(path);
            for (std::size_t at = 0; (at = pattern.find(lostByte, at)) != std::string::npos;)
                pattern.replace(at, lostByte.size(), "?");
            patterns.push_back(std::move(pattern));
        }
        for (const std::string& pattern : patterns) {
            bytes += pattern.size();
            if (bytes > mostExclusionBytes)
                return arguments;
            arguments.insert(arguments.end(), {"--include", '!' + pattern});
        }
    }
    return arguments;
}

} // namespace kelvane
