// Which snapshots the repository has, and what is known of them beside it.

#include "LocalDaemon/BackupTrouble.h"
#include "LocalDaemon/IndexKeeper.h"
#include "Support/Logging.h"

#include <algorithm>

namespace kelvane {

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

// That a snapshot lacks something is often known only when it has been made. The repository has to tell it as
// well: on another machine, or without the index, what is missing would count as deleted.
ResticOutcome IndexKeeper::mark(Made& made, const StopSignal& stop) const {
    if (const ResticOutcome outcome = repository_.markPartial({made.id}, stop); !outcome.succeeded()) {
        KelvaneSystemLog("Snapshot %@ lacks something and is not marked yet: %@", made.id, reasonOf(outcome));
        return {}; // the index knows it, and the next time it is made current
    }
    const Repository::Listing listing = repository_.snapshots(stop);
    if (!listing.snapshots.empty() && listing.snapshots.back().sequence == nextSequence())
        made.id = listing.snapshots.back().id;
    return listing.outcome;
}

// With those marked that were not when they were made. Their ids change, so that the index has to follow.
Repository::Listing IndexKeeper::markedSnapshots(const StopSignal& stop) const {
    Repository::Listing listing = repository_.snapshots(stop);
    std::vector<std::string> unmarked;
    for (const Snapshot& each : listing.snapshots)
        if (!each.isPartial && retention_.isIncomplete(each.sequence) &&
            (each.sequence < highestSequence || each == listing.snapshots.back()))
            unmarked.push_back(each.id);
    if (!listing.outcome.succeeded() || unmarked.empty())
        return listing;
    if (const ResticOutcome outcome = repository_.markPartial(unmarked, stop); !outcome.succeeded()) {
        KelvaneSystemLog("%llu snapshots that lack something are not marked yet: %@", unmarked.size(),
                         reasonOf(outcome));
        return listing;
    }
    return repository_.snapshots(stop);
}

// A disk that errs may give back later what it does not show now.
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

} // namespace kelvane
