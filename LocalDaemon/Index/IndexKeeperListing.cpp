// Lists the snapshots of the repository and their contents, and marks incomplete ones.

#include "Foundation/CleanPath.h"
#include "LocalDaemon/Index/IndexKeeper.h"
#include "LocalDaemon/Index/RetentionAlerts.h"
#include "Support/Logging.h"

#include <algorithm>
#include <iterator>

namespace kelvane {
namespace {

using SteadyClock = std::chrono::steady_clock;

// Listing a snapshot takes at least half a second; above this number an alert shows the progress.
constexpr std::size_t fewToList = 20;
constexpr std::chrono::seconds tellInterval{10};
constexpr std::chrono::minutes saveInterval{5};

// Returns the known snapshots, followed by those of an incomplete listing that are certainly newer.
std::vector<Snapshot> withNewer(const BackupIndex& known, const std::vector<Snapshot>& listed) {
    std::vector<Snapshot> all = known.inOrderOfCreation();
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

} // namespace

Repository::Listing IndexKeeper::snapshots(const StopSignal& stop) const {
    return withKnown(repository_.snapshots(stop));
}

Repository::Listing IndexKeeper::withKnown(Repository::Listing listing) const {
    const bool isOfAnother = index_->repositoryId() != repositoryId_;
    for (Snapshot& listed : listing.snapshots) {
        listed.isPartial = listed.isPartial || retention_.isIncomplete(listed.sequence);
        for (const auto& [number, known] : index_->snapshots())
            if (!isOfAnother && isSame(known, listed)) {
                listed.isPartial = listed.isPartial || known.isPartial;
                listed.lacks = known.lacks;
            }
    }
    return listing;
}

// Tags a snapshot that lacks something, which is often known only after it was made. The repository must
// contain this fact as well: on another machine, or without the index, the missing files would count as
// deleted.
ResticOutcome IndexKeeper::mark(Made& made, std::string_view tag, const StopSignal& stop) const {
    if (const ResticOutcome outcome = repository_.addTag(tag, {made.id}, stop); !outcome.succeeded()) {
        logWarning("The incomplete snapshot %@ cannot be tagged yet: %@", made.id, reasonOf(outcome));
        return {}; // The index knows it, and its next update tries again.
    }
    const Repository::Listing listing = repository_.snapshots(stop);
    if (!listing.snapshots.empty() && listing.snapshots.back().sequence == nextSequence())
        made.id = listing.snapshots.back().id;
    return listing.outcome;
}

// Lists the snapshots after tagging those that could not be tagged when they were made. Their ids
// change, so the index is updated as well.
Repository::Listing IndexKeeper::markedSnapshots(const StopSignal& stop) const {
    Repository::Listing listing = repository_.snapshots(stop);
    std::vector<std::string> unmarked;
    for (const Snapshot& each : listing.snapshots)
        if (!each.isPartial && retention_.isIncomplete(each.sequence) &&
            (each.sequence < highestSequence || each == listing.snapshots.back()))
            unmarked.push_back(each.id);
    if (!listing.outcome.succeeded() || unmarked.empty())
        return listing;
    if (const ResticOutcome outcome = repository_.addTag(partialTag, unmarked, stop); !outcome.succeeded()) {
        logWarning("%llu incomplete snapshots cannot be tagged yet: %@", unmarked.size(), reasonOf(outcome));
        return listing;
    }
    return repository_.snapshots(stop);
}

// A failing disk may return later what it does not return now.
void IndexKeeper::noteVanished(const Repository::Listing& listing, const std::string& repositoryId) {
    if (index_->repositoryId() != repositoryId)
        return vanished_.clear();
    for (const auto& known : index_->snapshots())
        if (std::ranges::none_of(listing.snapshots,
                                 [&](const Snapshot& each) { return isSame(known.second, each); }))
            vanished_.insert(known.second.id);
    for (const Snapshot& listed : listing.snapshots)
        vanished_.erase(listed.id);
}

ResticOutcome IndexKeeper::takeBackVanished(const StopSignal& stop) {
    const Repository::Listing listing = repository_.snapshots(stop);
    const bool isOneBack = std::ranges::any_of(
        listing.snapshots, [this](const Snapshot& each) { return vanished_.contains(each.id); });
    return listing.outcome.succeeded() && isOneBack ? synchronize(false, stop) : listing.outcome;
}

// Returns the index with a number for each snapshot, and the numbers whose contents are to be listed.
BackupIndex IndexKeeper::withListed(const Repository::Listing& listing, const std::string& repositoryId,
                                    Numbers& toList) const {
    BackupIndex none(repositoryId, {}, {});
    const BackupIndex& known = index_->repositoryId() == repositoryId ? *index_ : none;
    const std::vector<Snapshot> order =
        listing.unread.empty() ? listing.snapshots : withNewer(known, listing.snapshots);
    // Older snapshots may have another version of the items in a removed snapshot.
    const bool isOneGone = std::ranges::any_of(known.snapshots(), [&](const auto& each) {
        return std::ranges::none_of(order,
                                    [&](const Snapshot& listed) { return isSame(each.second, listed); });
    });
    std::optional<BackupIndex> numbered = isOneGone ? std::nullopt : indexNumbering(known, order);
    const bool isMadeAnew = !numbered.has_value();
    if (isMadeAnew) {
        logWarning("Snapshots are missing or in a different order; rebuilding the index.");
        numbered = indexNumbering(none, order);
    }
    for (const auto& [number, snapshot] : numbered->snapshots())
        if (isMadeAnew || !known.holdsSnapshot(snapshot.id))
            toList.push_back(number);
    return std::move(*numbered);
}

// A snapshot whose contents cannot be read is left out and listed again the next time. Snapshots are
// listed in the order of creation, because disappearances are found by comparing each one with its
// predecessors.
ResticOutcome IndexKeeper::rebuild(BackupIndex from, const Numbers& toList, const StopSignal& stop) {
    ResticOutcome failure;
    std::vector<Snapshot> read;
    for (const auto& [number, snapshot] : from.snapshots())
        if (!std::ranges::binary_search(toList, number))
            read.push_back(snapshot);
    auto told = SteadyClock::now() - tellInterval;
    auto saved = SteadyClock::now();
    for (std::size_t at = 0; at < toList.size(); ++at) {
        if (toList.size() > fewToList && SteadyClock::now() - told >= tellInterval) {
            alerts_.raise(alertForListing(at, toList.size()));
            told = SteadyClock::now();
        }
        if (SteadyClock::now() - saved >= saveInterval) {
            keepUnfinished(from, read);
            saved = SteadyClock::now();
        }
        const Snapshot snapshot = *from.snapshot(toList[at]);
        const ResticOutcome outcome = listContents(from, toList[at], read, stop);
        if (outcome.trouble == ResticTrouble::Failed) {
            logError("Snapshot %@ cannot be read: %@", snapshot.id, outcome.errors);
            alerts_.raise(alertForUnreadSnapshots(outcome.errors));
            failure = outcome;
            continue;
        }
        if (!outcome.succeeded()) {
            keepUnfinished(from, read);
            return outcome;
        }
        read.push_back(snapshot);
        lookForDisappearance(from, toList[at], toList);
    }
    if (read.empty() && !failure.succeeded())
        return failure;
    if (!failure.succeeded()) {
        isCurrent_ = false;
        from = indexOfKept(from, read);
    }
    take(std::move(from), {everything}, true);
    return {};
}

// `read`: the snapshots whose contents the index has.
ResticOutcome IndexKeeper::listContents(BackupIndex& from, std::uint32_t number,
                                        const std::vector<Snapshot>& read, const StopSignal& stop) const {
    const auto listed = from.snapshots().find(number);
    if (listed != from.snapshots().begin()) {
        const auto& [previous, snapshot] = *std::prev(listed);
        const bool hasSameTree = !snapshot.tree.empty() && snapshot.tree == listed->second.tree;
        if (hasSameTree && std::ranges::find(read, snapshot.id, &Snapshot::id) != read.end()) {
            if (stop.isSet())
                return {.trouble = ResticTrouble::Stopped};
            from = from.withSameContents(previous, number);
            return {};
        }
    }
    auto contents = repository_.list(listed->second.id, stop);
    if (contents.outcome.succeeded())
        from = indexWithContents(from, number, std::move(contents.items));
    return contents.outcome;
}

// Saves partial progress, so that a stop or a restart does not list the snapshots again. Records about
// snapshots that are not in the index yet are kept, and the published index does not change.
void IndexKeeper::keepUnfinished(const BackupIndex& from, const std::vector<Snapshot>& read) {
    const bool isOfAnother = index_->repositoryId() != from.repositoryId();
    if (isOfAnother ? !read.empty() : read.size() > index_->snapshots().size())
        save(indexOfKept(from, read));
}

} // namespace kelvane
