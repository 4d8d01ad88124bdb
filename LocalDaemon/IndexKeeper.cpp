#include "LocalDaemon/IndexKeeper.h"

#include "LocalDaemon/CleanPath.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace kelvane {
namespace {

constexpr std::size_t largestFile = std::size_t{1} << 31U;
constexpr mode_t privateMode = 0600;
constexpr std::size_t mostChanged = 1001; // more than anybody is told of one by one
// Listing a snapshot takes seconds. Those before are looked at for what has gone since, one a day.
constexpr std::size_t mostListed = 40;
constexpr std::int64_t secondsPerDay = 86400;

BackupIndex indexIn(const std::string& path) {
    const FileReading file = readFile(path, largestFile);
    if (file.error == ENOENT)
        return {};
    if (auto index = file.succeeded() ? BackupIndex::decoded(file.bytes) : std::nullopt)
        return std::move(*index);
    KelvaneSystemLog("The index of the backup is made anew; the one in %@ cannot be used. %@", path,
                     file.reason);
    return {};
}

// The last of each day and the newest of all, in the order of their time.
std::vector<Snapshot> worthListing(const std::vector<Snapshot>& snapshots) {
    std::vector<Snapshot> worth;
    for (const Snapshot& each : snapshots) {
        if (!worth.empty() && worth.back().time / secondsPerDay == each.time / secondsPerDay &&
            !worth.back().isPartial)
            worth.pop_back();
        worth.push_back(each);
    }
    if (worth.size() > mostListed)
        worth.erase(worth.begin(), worth.end() - mostListed);
    return worth;
}

std::vector<std::string> changedIn(const BackupIndex& index, std::uint32_t version) {
    std::vector<std::string> paths;
    index.forEach([&](const BackupIndex::Item& item) {
        if (item.version == version && paths.size() < mostChanged)
            paths.push_back(index.pathOf(item));
    });
    return paths;
}

} // namespace

IndexKeeper::IndexKeeper(Repository repository, std::string path)
    : repository_(std::move(repository)),
      path_(std::move(path)),
      index_(std::make_shared<const BackupIndex>(indexIn(path_))) {}

ResticOutcome IndexKeeper::synchronize(bool mayMake, const StopSignal& stop) {
    const bool isKnown = !index_->repositoryId().empty();
    const Repository::Opening opening = repository_.open(mayMake && !isKnown, stop);
    if (!opening.outcome.succeeded())
        return opening.outcome;
    // They would be in the way of whoever looks through the whole repository.
    if (const ResticOutcome outcome = repository_.clearStaleLocks(stop);
        !outcome.succeeded() && !stop.isSet())
        KelvaneSystemLog("Locks stay in the repository. %@", outcome.errors);
    const Repository::Listing listing = repository_.snapshots(stop);
    if (!listing.outcome.succeeded())
        return listing.outcome;
    BackupIndex from;
    if (isKnown && index_->repositoryId() == opening.id)
        from = indexOfKept(*index_, listing.snapshots);
    const Snapshot* const newest = from.newestSnapshot();
    std::vector<Snapshot> unknown;
    for (const Snapshot& each : listing.snapshots)
        if (!newest || (each.time >= newest->time && each.id != newest->id))
            unknown.push_back(each);
    if (unknown.empty() && from.repositoryId() == opening.id && from.itemCount() == index_->itemCount())
        return {};
    KelvaneSystemLog("The index of the backup is brought up to the repository: %llu snapshots are new to it.",
                     unknown.size());
    return rebuild(std::move(from), opening.id, worthListing(unknown), stop);
}

ResticOutcome IndexKeeper::rebuild(BackupIndex from, const std::string& repositoryId,
                                   const std::vector<Snapshot>& snapshots, const StopSignal& stop) {
    if (from.repositoryId().empty())
        from = BackupIndex(repositoryId, {}, {});
    for (const Snapshot& snapshot : snapshots) {
        std::vector<SnapshotItem> held;
        const auto contents = repository_.list(
            snapshot.id, [&](SnapshotItem&& item) { held.push_back(std::move(item)); }, stop);
        if (!contents.outcome.succeeded())
            return contents.outcome;
        from = indexWith(from, repositoryId, snapshot, std::move(held));
    }
    take(std::move(from), {"/"}, true);
    return {};
}

ResticOutcome IndexKeeper::add(const std::string& snapshotId, bool isPartial, const StopSignal& stop) {
    std::vector<SnapshotItem> held;
    auto contents = repository_.list(
        snapshotId, [&](SnapshotItem&& item) { held.push_back(std::move(item)); }, stop);
    if (!contents.outcome.succeeded())
        return contents.outcome;
    contents.snapshot.isPartial = isPartial;
    BackupIndex next = indexWith(*index_, index_->repositoryId(), contents.snapshot, std::move(held));
    const std::vector<std::string> changed = changedIn(next, next.snapshots().rbegin()->first);
    take(std::move(next), changed, false);
    return {};
}

ResticOutcome IndexKeeper::forgetOld(std::chrono::days keep, const StopSignal& stop) {
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    const auto due = now.time_since_epoch() - keep - std::chrono::days(1); // a day's worth at a time
    const BackupIndex::Snapshots& known = index_->snapshots();
    if (known.size() > 1 && known.begin()->second.time <= due.count()) {
        if (ResticOutcome outcome = repository_.forget(keep, stop); !outcome.succeeded())
            return outcome;
        isToPrune_ = true;
        const Repository::Listing listing = repository_.snapshots(stop);
        if (!listing.outcome.succeeded())
            return listing.outcome;
        take(indexOfKept(*index_, listing.snapshots), {"/"}, false);
    }
    if (!isToPrune_)
        return {};
    ResticOutcome outcome = repository_.prune(stop);
    isToPrune_ = !outcome.succeeded();
    return outcome;
}

// When the file cannot be written, the next start finds an older one and brings that up to the repository.
void IndexKeeper::take(BackupIndex index, const std::vector<std::string>& changed, bool isRebuilt) {
    index_ = std::make_shared<const BackupIndex>(std::move(index));
    FileOutcome saved;
    if (ensureFolder(std::string(folderOf(path_))))
        saved = replaceFileAtomically(path_, index_->encoded(), privateMode);
    if (!saved.succeeded())
        KelvaneSystemLog("The index of the backup cannot be saved: %@", saved.reason);
    publish_(index_, changed, isRebuilt);
}

} // namespace kelvane
