#include "LocalDaemon/IndexKeeper.h"

#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/KnownRepositories.h"
#include "LocalDaemon/LateChanges.h"
#include "LocalDaemon/RepositoryFiles.h"
#include "LocalDaemon/RetentionAlerts.h"
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
// Listing a snapshot takes half a second at least, which is minutes for so many.
constexpr std::size_t mostListed = 400;
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

using Numbered = std::pair<std::uint32_t, Snapshot>;

// All of them; of very many, the older ones make do with the last complete snapshot of a day.
std::vector<std::uint32_t> worthListing(std::vector<Numbered> unknown) {
    const auto day = [](const Numbered& each) { return each.second.time / secondsPerDay; };
    for (std::size_t at = 0; at + 1 < unknown.size() && unknown.size() > mostListed;) {
        const bool isReplaced = std::any_of(
            unknown.begin() + static_cast<std::ptrdiff_t>(at) + 1, unknown.end(),
            [&](const Numbered& later) { return !later.second.isPartial && day(later) == day(unknown[at]); });
        if (isReplaced)
            unknown.erase(unknown.begin() + static_cast<std::ptrdiff_t>(at));
        else
            ++at;
    }
    std::vector<std::uint32_t> numbers;
    for (const Numbered& each : unknown)
        numbers.push_back(each.first);
    return numbers;
}

std::string idOf(const std::pair<const std::uint32_t, Snapshot>& numbered) {
    return numbered.second.id;
}

std::vector<Snapshot> snapshotsOf(const BackupIndex& index) {
    std::vector<Snapshot> snapshots;
    for (const auto& [number, snapshot] : index.snapshots())
        snapshots.push_back(snapshot);
    return snapshots;
}

// What is known, and behind it those of an answer with gaps that certainly are newer.
std::vector<Snapshot> withNewer(const BackupIndex& known, const std::vector<Snapshot>& listed) {
    std::vector<Snapshot> all = snapshotsOf(known);
    for (Snapshot& each : all)
        if (const auto told = std::ranges::find(listed, each.id, &Snapshot::id); told != listed.end())
            each = *told;
    const auto isKnown = [&](const Snapshot& each) { return known.holdsSnapshot(each.id); };
    const auto lastKnown = std::find_if(listed.rbegin(), listed.rend(), isKnown).base();
    const std::uint64_t newest = all.empty() ? 0 : all.back().sequence;
    std::copy_if(lastKnown, listed.end(), std::back_inserter(all),
                 [&](const Snapshot& each) { return known.snapshots().empty() || each.sequence > newest; });
    return all;
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

ResticOutcome IndexKeeper::synchronize(bool mayMake, const StopSignal& stop) {
    isCurrent_ = false;
    const RepositoryPlace& place = repository_.restic().place();
    const KnownRepositories known(place.passwordFile);
    using Making = Repository::Making;
    const bool hasOneBeenThere = !index_->repositoryId().empty() || known.knows(place.location);
    const Making making = mayMake && mayMakeAnyway_     ? Making::Always
                          : mayMake && !hasOneBeenThere ? Making::UnlessDiskIsAway
                                                        : Making::Never;
    const Repository::Opening opening = repository_.open(making, stop);
    if (opening.wasKeyMade)
        onKeyMade_();
    if (!opening.outcome.succeeded())
        return opening.outcome;
    mayMakeAnyway_ = false;
    known.note(place.location, opening.id);
    if (opening.id != repositoryId_)
        useRepository(opening.id);
    // They would be in the way of whoever looks through the whole repository.
    if (const ResticOutcome outcome = repository_.clearStaleLocks(stop).outcome;
        !outcome.succeeded() && !stop.isSet())
        KelvaneSystemLog("Locks stay in the repository. %@", outcome.errors);
    const Repository::Listing listing = withKnown(markedSnapshots(stop));
    if (!listing.outcome.succeeded())
        return listing.outcome;
    reportUnread(listing);
    noteVanished(listing, opening.id);
    Numbers toList;
    BackupIndex from = withListed(listing, opening.id, toList);
    isCurrent_ = listing.unread.empty();
    for (const std::vector<Snapshot>& each : {snapshotsOf(from), listing.snapshots})
        for (const Snapshot& snapshot : each)
            newestSequence_ = std::max(newestSequence_, snapshot.sequence);
    if (toList.empty() && from.repositoryId() == index_->repositoryId() &&
        from.itemCount() == index_->itemCount() &&
        std::ranges::equal(from.snapshots(), index_->snapshots(), {}, idOf, idOf)) {
        reportDisappearances();
        return {};
    }
    const auto count = static_cast<unsigned long long>(toList.size());
    KelvaneSystemLog("Updating the index; %llu snapshots are to be listed.", count);
    ResticOutcome outcome = rebuild(std::move(from), toList, stop);
    isCurrent_ = isCurrent_ && outcome.succeeded();
    return outcome;
}

// Without an index of its own the repository is listed; until then the other one's stays.
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
        take(BackupIndex(*index_), {"/"}, true);
}

// The index with a number for each snapshot, and those numbers whose contents are to be listed.
BackupIndex IndexKeeper::withListed(const Repository::Listing& listing, const std::string& repositoryId,
                                    Numbers& toList) const {
    BackupIndex none(repositoryId, {}, {});
    const BackupIndex& known = index_->repositoryId() == repositoryId ? *index_ : none;
    const std::vector<Snapshot> order =
        listing.unread.empty() ? listing.snapshots : withNewer(known, listing.snapshots);
    // Of what a snapshot held that has gone, older ones may hold another version.
    const bool isOneGone = std::ranges::any_of(known.snapshots(), [&](const auto& each) {
        return std::ranges::none_of(order,
                                    [&](const Snapshot& listed) { return isSame(each.second, listed); });
    });
    std::optional<BackupIndex> numbered = isOneGone ? std::nullopt : indexNumbering(known, order);
    const bool isMadeAnew = !numbered.has_value();
    if (isMadeAnew) {
        KelvaneSystemLog("Snapshots are missing or in another order; the index is made anew.");
        numbered = indexNumbering(none, order);
    }
    std::vector<Numbered> unknown;
    for (const auto& [number, snapshot] : numbered->snapshots())
        if (isMadeAnew || !known.holdsSnapshot(snapshot.id))
            unknown.emplace_back(number, snapshot);
    toList = worthListing(std::move(unknown));
    return std::move(*numbered);
}

// One whose contents cannot be read is left out for now and asked for again the next time.
ResticOutcome IndexKeeper::rebuild(BackupIndex from, const Numbers& toList, const StopSignal& stop) {
    ResticOutcome failure;
    std::vector<Snapshot> readable = snapshotsOf(from);
    for (const std::uint32_t number : toList) {
        const Snapshot snapshot = *from.snapshot(number);
        auto contents = repository_.list(snapshot.id, stop);
        const ResticOutcome& outcome = contents.outcome;
        if (outcome.trouble == ResticTrouble::Failed) {
            KelvaneSystemLog("Snapshot %@ cannot be read: %@", snapshot.id, outcome.errors);
            alerts_.raise(alertForUnreadSnapshots(outcome.errors));
            std::erase(readable, snapshot);
            failure = outcome;
            continue;
        }
        if (!outcome.succeeded())
            return outcome;
        from = indexWithContents(from, number, std::move(contents.items));
        lookForDisappearance(from, number, toList);
    }
    if (readable.empty() && !failure.succeeded())
        return failure;
    if (!failure.succeeded()) {
        isCurrent_ = false;
        from = indexOfKept(from, readable);
    }
    take(std::move(from), {"/"}, true);
    return {};
}

ResticOutcome IndexKeeper::add(Made made, const StopSignal& stop) {
    retention_.noteMade(nextSequence(), made.isPartial);
    if (made.isPartial && !made.hasPartialTag)
        if (ResticOutcome outcome = mark(made, stop); !outcome.succeeded())
            return outcome;
    auto contents = repository_.list(made.id, stop);
    if (!contents.outcome.succeeded())
        return contents.outcome;
    contents.snapshot.isPartial = made.isPartial;
    contents.snapshot.lacks = made.lacks;
    if (made.began)
        takeLate(contents.items, made);
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

void IndexKeeper::takeLate(std::vector<SnapshotItem>& items, const Made& made) const {
    if (const std::size_t late = takeLateChanges(items, *index_, *made.began, made.readAgain); late != 0)
        KelvaneSystemLog("%llu files changed while they were backed up; the next backup reads them again.",
                         late);
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
    publish_(index_, {"/"}, true);
}

ResticOutcome IndexKeeper::forgetOld(std::chrono::days keep, const StopSignal& stop) {
    if (!vanished_.empty())
        if (ResticOutcome outcome = takeBackVanished(stop); !outcome.succeeded())
            return outcome;
    if (damage_->isNone() && retention_.isPruningDue()) { // restic prunes nothing while it misses something
        if (ResticOutcome outcome = repository_.prune(stop); !outcome.succeeded())
            return outcome;
        retention_.notePruned();
    }
    const RetentionLimits limits = retention_.limits(keep);
    const std::vector<Snapshot> known = snapshotsOf(*index_);
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
        return {}; // first the index has to be right
    std::vector<std::string> ids = snapshotsToForget(listing.snapshots, retention_.limits(keep));
    if (holdDisappeared(ids))
        ids = snapshotsToForget(listing.snapshots, retention_.limits(keep));
    if (ids.empty())
        return {};
    KelvaneSystemLog("Forgetting %llu of %llu snapshots: all that is in them was replaced or deleted more "
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
        take(indexOfKept(*index_, listing.snapshots), {"/"}, false);
    return {};
}

void IndexKeeper::reportOrder(const Snapshot& made) const {
    const Snapshot* const before = index_->newestSnapshot();
    if (!before || made.time >= before->time)
        return alerts_.withdraw(orderAlert);
    KelvaneSystemLog("Snapshot %@ is dated before the one made before it, %@: the clock is behind, or was "
                     "ahead. It counts as the newest.",
                     made.id, before->id);
    alerts_.raise(alertForOrder(*before, made));
}

void IndexKeeper::reportUnread(const Repository::Listing& listing) const {
    if (listing.unread.empty())
        return alerts_.withdraw(unreadSnapshotsAlert);
    KelvaneSystemLog("The list of snapshots is not whole: %@", listing.unread);
    alerts_.raise(alertForUnreadSnapshots(listing.unread));
}

// When the file cannot be written, the next start finds an older one and brings that up to the repository.
void IndexKeeper::take(BackupIndex index, const std::vector<std::string>& changed, bool isRebuilt) {
    index_ =
        std::make_shared<const BackupIndex>(damage_->isNone() ? std::move(index) : index.withDamage(damage_));
    FileOutcome saved;
    if (ensureFolder(std::string(folderOf(path_))))
        saved = replaceFileAtomically(path_, index_->encoded(), privateMode);
    if (!saved.succeeded())
        KelvaneSystemLog("The index of the backup cannot be saved: %@", saved.reason);
    retention_.update(*index_);
    publish_(index_, changed, isRebuilt);
    reportDisappearances();
}

} // namespace kelvane
