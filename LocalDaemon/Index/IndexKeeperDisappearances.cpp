// Disappearances of many files at once, which the user decides about.

#include "LocalDaemon/Index/IndexKeeper.h"
#include "LocalDaemon/Index/RetentionAlerts.h"

#include <algorithm>

namespace kelvane {

// Compares two complete snapshots whose contents the index knows. Snapshots in between of which it has
// only the number are not considered.
void IndexKeeper::lookForDisappearance(const BackupIndex& index, std::uint32_t number,
                                       const Numbers& listed) {
    const auto isComplete = [&](std::uint32_t each) {
        const Snapshot* const snapshot = index.snapshot(each);
        return snapshot && !snapshot->isPartial &&
               (std::ranges::binary_search(listed, each) || index_->holdsSnapshot(snapshot->id));
    };
    std::uint32_t previous = 0;
    std::uint32_t next = 0;
    for (const auto& [each, snapshot] : index.snapshots())
        if (each < number && isComplete(each))
            previous = each;
        else if (each > number && next == 0 && isComplete(each) && index_->holdsSnapshot(snapshot.id))
            next = each;
    if (!isComplete(number))
        return;
    for (const auto& [before, after] : {std::pair(previous, number), std::pair(number, next)})
        if (const auto gone = before != 0 ? disappearanceAt(index, before, after) : std::nullopt)
            retention_.add(*gone);
}

// Decisions may have been lost, so the user is asked again about disappearances without one. Returns
// true when a snapshot is kept for that.
bool IndexKeeper::holdDisappeared(const std::vector<std::string>& ids) {
    const std::set<std::string> going(ids.begin(), ids.end());
    if (!isDisappearance(filesHeldLastBy(*index_, going), 0))
        return false;
    bool isOneHeld = false;
    std::uint32_t previous = 0;
    for (const auto& [number, snapshot] : index_->snapshots()) {
        if (snapshot.isPartial)
            continue;
        const auto gone = previous != 0 && going.contains(index_->snapshot(previous)->id)
                              ? disappearanceAt(*index_, previous, number)
                              : std::nullopt;
        if (gone)
            retention_.add(*gone);
        isOneHeld = isOneHeld || gone;
        previous = number;
    }
    reportDisappearances();
    return isOneHeld;
}

std::string IndexKeeper::decide(const std::string& disappearance, RetentionRecord::Decision decision) {
    std::string failure = retention_.decide(disappearance, decision);
    reportDisappearances();
    return failure;
}

void IndexKeeper::reportDisappearances() {
    const std::scoped_lock guard(reporting_);
    std::set<std::string> standing;
    for (const RetentionRecord::Entry& entry : retention_.entries()) {
        if (entry.decision == RetentionRecord::Decision::Forget)
            continue;
        standing.insert(kindOfDisappearance(entry.disappearance));
        alerts_.raise(alertForDisappearance(entry));
    }
    for (const std::string& kind : reported_)
        if (!standing.contains(kind))
            alerts_.withdraw(kind);
    reported_ = std::move(standing);
}

} // namespace kelvane
