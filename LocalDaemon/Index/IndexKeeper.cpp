#include "LocalDaemon/Index/IndexKeeper.h"

#include "Common/RestoreStatus.h"
#include "Foundation/CleanPath.h"
#include "LocalDaemon/Index/LateChanges.h"
#include "LocalDaemon/Index/RepositoryFiles.h"
#include "LocalDaemon/Index/RetentionAlerts.h"
#include "LocalDaemon/Restic/KnownRepositories.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>

namespace kelvane {
namespace {

constexpr std::size_t largestFile = std::size_t{1} << 31U;
constexpr std::size_t mostChanged = 1001; // More than are ever announced one by one.

BackupIndex indexIn(const std::string& path) {
    const FileReading file = readFile(path, largestFile);
    if (file.error == ENOENT)
        return {};
    if (auto index = file.succeeded() ? BackupIndex::decoded(file.bytes) : std::nullopt)
        return std::move(*index);
    logError("The index file cannot be used and is rebuilt: %@",
             file.succeeded() ? path + " is damaged" : file.reason);
    return {};
}

std::string idOf(const std::pair<const std::uint32_t, Snapshot>& numbered) {
    return numbered.second.id;
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

IndexKeeper::IndexKeeper(Repository repository, std::string path, MachineClock clock)
    : repository_(std::move(repository)),
      path_(std::move(path)),
      index_(std::make_shared<const BackupIndex>(indexIn(path_))),
      repositoryId_(index_->repositoryId()),
      retention_(path_ + ".retention", std::move(clock)) {
    retention_.setRepository(repositoryId_);
    retention_.noteClock();
}

void IndexKeeper::setAlerts(Alerts alerts) {
    alerts_ = std::move(alerts);
    reportDisappearances();
}

Repository::Making IndexKeeper::makingFor(bool mayMake, const KnownRepositories& known) const {
    if (!mayMake)
        return Repository::Making::Never;
    if (mayMakeAnyway_)
        return Repository::Making::Always;
    const bool hasOneBeenThere =
        !index_->repositoryId().empty() || known.knows(repository_.restic().place().location);
    return hasOneBeenThere ? Repository::Making::Never : Repository::Making::UnlessDiskIsAway;
}

ResticOutcome IndexKeeper::synchronize(bool mayMake, const StopSignal& stop) {
    isCurrent_ = false;
    const RepositoryPlace& place = repository_.restic().place();
    const KnownRepositories known(place.passwordFile);
    const Repository::Opening opening = repository_.open(makingFor(mayMake, known), stop);
    if (opening.wasKeyMade)
        onKeyMade_();
    if (!opening.outcome.succeeded())
        return opening.outcome;
    mayMakeAnyway_ = false;
    known.note(place.location, opening.id);
    if (opening.id != repositoryId_)
        useRepository(opening.id);
    // Stale locks would block operations on the whole repository.
    if (const ResticOutcome outcome = repository_.clearStaleLocks(stop).outcome;
        !outcome.succeeded() && !stop.isSet())
        logWarning("Stale locks cannot be removed: %@", outcome.errors);
    const Repository::Listing listing = withKnown(markedSnapshots(stop));
    if (!listing.outcome.succeeded())
        return listing.outcome;
    reportUnread(listing);
    noteVanished(listing, opening.id);
    Numbers toList;
    BackupIndex from = withListed(listing, opening.id, toList);
    isCurrent_ = listing.unread.empty();
    for (const std::vector<Snapshot>& each : {from.inOrderOfCreation(), listing.snapshots})
        for (const Snapshot& snapshot : each)
            newestSequence_ = std::max(newestSequence_, snapshot.sequence);
    if (toList.empty() && from.repositoryId() == index_->repositoryId() &&
        from.itemCount() == index_->itemCount() &&
        std::ranges::equal(from.snapshots(), index_->snapshots(), {}, idOf, idOf)) {
        reportDisappearances();
        return {};
    }
    const auto count = static_cast<unsigned long long>(toList.size());
    logNotice("Updating the index: %llu snapshots to list.", count);
    ResticOutcome outcome = rebuild(std::move(from), toList, stop);
    alerts_.withdraw(restorestatus::listingAlert);
    isCurrent_ = isCurrent_ && outcome.succeeded();
    return outcome;
}

// Uses the index file of this repository; without one the repository is listed, and the index of the
// previous repository stays until then.
void IndexKeeper::useRepository(const std::string& id) {
    exchangeFile(path_, repositoryId_, id);
    repositoryId_ = id;
    vanished_.clear();
    BackupIndex known = indexIn(path_);
    const bool isKnown = known.repositoryId() == id;
    if (isKnown)
        index_ = std::make_shared<const BackupIndex>(std::move(known));
    retention_.setRepository(id);
    damage_ = std::make_shared<const Damage>();
    onRepositoryChanged_(id);
    if (isKnown)
        take(BackupIndex(*index_), {everything}, true);
}

ResticOutcome IndexKeeper::add(Made made, const StopSignal& stop) {
    retention_.noteMade(nextSequence(), true); // Incomplete until the paths that it lacks are known.
    if (made.isPartial && !made.hasPartialTag)
        if (ResticOutcome outcome = mark(made, partialTag, stop); !outcome.succeeded())
            return outcome;
    auto contents = repository_.list(made.id, stop);
    if (!contents.outcome.succeeded())
        return contents.outcome;
    contents.snapshot.isPartial = made.isPartial;
    contents.snapshot.lacks = made.lacks;
    if (made.began)
        takeLate(contents, made);
    const bool isComplete = !made.isPartial;
    if (isComplete && contents.snapshot.lacks.empty())
        retention_.noteMade(nextSequence(), false);
    else if (isComplete)
        if (ResticOutcome outcome = markMoved(made, contents.snapshot, stop); !outcome.succeeded())
            return outcome;
    reportOrder(contents.snapshot);
    newestSequence_ = std::max(newestSequence_, contents.snapshot.sequence);
    BackupIndex next =
        indexWith(*index_, index_->repositoryId(), contents.snapshot, std::move(contents.items));
    const std::uint32_t number = next.snapshots().rbegin()->first;
    damage_ = std::make_shared<const Damage>(damageAfter(*index_, next, number));
    lookForDisappearance(next, number, {number});
    const std::vector<std::string> changed = changedIn(next, number);
    take(std::move(next), changed, false);
    return {};
}

// When the snapshot cannot be marked, the next update of the index counts it as partial.
ResticOutcome IndexKeeper::markMoved(Made& made, Snapshot& snapshot, const StopSignal& stop) {
    made.id = snapshot.id;
    ResticOutcome outcome = mark(made, movedTag, stop);
    if (made.id != snapshot.id)
        retention_.noteMade(nextSequence(), false);
    snapshot.id = made.id;
    return outcome;
}

void IndexKeeper::takeLate(Repository::Contents& contents, const Made& made) const {
    Snapshot& snapshot = contents.snapshot;
    if (!snapshot.isPartial || !snapshot.lacks.empty())
        std::ranges::move(goneLate(contents.items, *index_, *made.began), std::back_inserter(snapshot.lacks));
    if (const std::size_t late = takeLateChanges(contents.items, *index_, *made.began, made.readAgain);
        late != 0)
        logNotice("%llu files changed while they were backed up; the next backup reads them again.", late);
}

std::uint64_t IndexKeeper::nextSequence() const {
    return std::min(newestSequence_ + 1, highestSequence);
}

std::string IndexKeeper::nextSequenceTag() {
    retention_.noteBegun(nextSequence());
    return std::string(sequenceTagStart) + std::to_string(nextSequence());
}

void IndexKeeper::setDamage(Damage damage) {
    if (damage == *damage_)
        return;
    damage_ = std::make_shared<const Damage>(std::move(damage));
    index_ = std::make_shared<const BackupIndex>(index_->withDamage(damage_));
    publish_(index_, {everything}, true);
}

ResticOutcome IndexKeeper::forgetOld(std::chrono::days keep, const StopSignal& stop) {
    if (!vanished_.empty())
        if (ResticOutcome outcome = takeBackVanished(stop); !outcome.succeeded())
            return outcome;
    // restic does not prune a repository with missing data.
    if (damage_->isNone() && retention_.isPruningDue()) {
        if (ResticOutcome outcome = repository_.prune(stop); !outcome.succeeded())
            return outcome;
        retention_.notePruned();
    }
    const RetentionLimits limits = retention_.limits(keep);
    const std::vector<Snapshot> known = index_->inOrderOfCreation();
    const auto ahead =
        std::ranges::find_if(known, [&](const Snapshot& each) { return each.time > limits.now; });
    if (ahead != known.end())
        alerts_.raise(alertForSnapshotAhead(*ahead));
    else
        alerts_.withdraw(aheadAlert);
    if (!retention_.isForgettingDue() || snapshotsToForget(known, limits).empty())
        return {};
    return forget(keep, stop);
}

ResticOutcome IndexKeeper::forget(std::chrono::days keep, const StopSignal& stop) {
    Repository::Listing listing = snapshots(stop);
    if (!listing.outcome.succeeded())
        return listing.outcome;
    reportUnread(listing);
    isCurrent_ = listing.unread.empty() && listing.snapshots.size() == index_->snapshots().size() &&
                 std::ranges::all_of(listing.snapshots,
                                     [&](const Snapshot& each) { return index_->holdsSnapshot(each.id); });
    if (!isCurrent_)
        return {}; // The index must be correct first.
    std::vector<std::string> ids = snapshotsToForget(listing.snapshots, retention_.limits(keep));
    if (holdDisappeared(ids))
        ids = snapshotsToForget(listing.snapshots, retention_.limits(keep));
    if (ids.empty())
        return {};
    logNotice("Forgetting %llu of %llu snapshots: a newer complete one has replaced them more "
              "than %lld days ago.",
              ids.size(), listing.snapshots.size(), static_cast<long long>(keep.count()));
    if (ResticOutcome outcome = repository_.forget(ids, stop); !outcome.succeeded())
        return outcome;
    retention_.noteForgotten();
    listing = snapshots(stop);
    if (!listing.outcome.succeeded())
        return listing.outcome;
    reportUnread(listing);
    isCurrent_ = listing.unread.empty();
    if (isCurrent_)
        take(indexOfKept(*index_, listing.snapshots), {everything}, false);
    return {};
}

void IndexKeeper::reportOrder(const Snapshot& made) const {
    const Snapshot* const before = index_->newestSnapshot();
    if (!before || made.time >= before->time)
        return alerts_.withdraw(orderAlert);
    logWarning("Snapshot %@ is dated before its predecessor %@: the clock is behind now, or was ahead then. "
               "The snapshot counts as the newest.",
               made.id, before->id);
    alerts_.raise(alertForOrder(*before, made));
}

void IndexKeeper::reportUnread(const Repository::Listing& listing) const {
    if (listing.unread.empty())
        return alerts_.withdraw(unreadSnapshotsAlert);
    logError("The list of snapshots is incomplete: %@", listing.unread);
    alerts_.raise(alertForUnreadSnapshots(listing.unread));
}

// When the file cannot be written, the next start loads an older one and updates it from the repository.
void IndexKeeper::save(BackupIndex index) {
    index_ =
        std::make_shared<const BackupIndex>(damage_->isNone() ? std::move(index) : index.withDamage(damage_));
    if (const FileOutcome saved = replacePrivateFile(path_, index_->encoded()); !saved.succeeded())
        logError("The index of the backup cannot be saved: %@", saved.reason);
}

void IndexKeeper::take(BackupIndex index, const std::vector<std::string>& changed, bool isRebuilt) {
    save(std::move(index));
    retention_.update(*index_);
    publish_(index_, changed, isRebuilt);
    reportDisappearances();
}

} // namespace kelvane
