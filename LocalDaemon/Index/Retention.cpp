#include "LocalDaemon/Index/Retention.h"

#include <algorithm>

namespace kelvane {
namespace {

constexpr std::uint64_t fewestDisappeared = 100; // Fewest files of a disappearance.
constexpr std::uint64_t disappearedPart = 10;    // A disappearance is more than one in ten files.

} // namespace

std::vector<std::string> snapshotsToForget(const std::vector<Snapshot>& inOrderOfCreation,
                                           const RetentionLimits& limits) {
    const std::int64_t replacedBefore = limits.now - std::chrono::seconds(limits.keep).count();
    const auto isAhead = [&](const Snapshot& each) { return each.time > limits.now; };
    if (std::ranges::any_of(inOrderOfCreation, isAhead))
        return {};
    std::vector<std::string> ids;
    std::vector<std::string> replaced; // Replaced when the next complete snapshot was made.
    std::int64_t time = limits.clockSteadySince;
    for (const Snapshot& each : inOrderOfCreation) {
        time = std::max(time, each.time); // No snapshot is older than those that precede it.
        if (const auto listed = limits.firstListed.find(each.sequence); listed != limits.firstListed.end())
            time = std::max(time, listed->second);
        if (!each.isPartial && time >= replacedBefore)
            break;
        if (!each.isPartial)
            ids.insert(ids.end(), replaced.begin(), replaced.end());
        if (!each.isPartial)
            replaced.clear();
        replaced.push_back(each.id);
    }
    std::erase_if(ids, [&](const std::string& id) { return limits.held.contains(id); });
    return ids;
}

bool isDisappearance(std::uint64_t files, std::uint64_t of) {
    return files >= fewestDisappeared && files > of / disappearedPart;
}

std::optional<Disappearance> disappearanceAt(const BackupIndex& index, std::uint32_t previous,
                                             std::uint32_t complete) {
    Disappearance found;
    const Snapshot* const snapshot = index.snapshot(complete);
    if (!snapshot)
        return std::nullopt;
    found.id = snapshot->id;
    found.time = snapshot->time;
    index.forEach([&](const BackupIndex::Item& item) {
        if (item.kind != ItemKind::File || item.snapshot < previous)
            return;
        ++found.of;
        if (item.snapshot >= complete)
            return;
        ++found.files;
        if (const Snapshot* const holder = index.snapshot(item.snapshot))
            found.snapshots.insert(holder->id);
    });
    return isDisappearance(found.files, found.of) ? std::optional(std::move(found)) : std::nullopt;
}

std::uint64_t filesHeldLastBy(const BackupIndex& index, const std::set<std::string>& snapshots) {
    std::set<std::uint32_t> numbers;
    for (const auto& [number, snapshot] : index.snapshots())
        if (snapshots.contains(snapshot.id))
            numbers.insert(number);
    std::uint64_t files = 0;
    index.forEach([&](const BackupIndex::Item& item) {
        files += item.kind == ItemKind::File && numbers.contains(item.snapshot) ? 1U : 0U;
    });
    return files;
}

} // namespace kelvane
