#include "LocalDaemon/Restic/Snapshots.h"

#include "Foundation/CleanPath.h"

#include <algorithm>
#include <map>
#include <queue>
#include <set>

namespace kelvane {
namespace {

// Reorders snapshots, which are sorted by time, so that each comes after its parent.
class ParentOrder {
public:
    explicit ParentOrder(const std::vector<Snapshot>& snapshots)
        : snapshots_(snapshots), isPlaced_(snapshots.size(), false) {}

    std::vector<Snapshot> run() {
        std::set<std::string> known;
        for (const Snapshot& each : snapshots_)
            known.insert(each.id);
        for (std::size_t at = 0; at < snapshots_.size(); ++at)
            if (known.contains(snapshots_[at].parent))
                childrenOf(at).push_back(at);
            else
                ready_.push(at);
        placeReady();
        // Adds snapshots whose parents form a cycle, which restic never writes.
        for (std::size_t at = 0; at < snapshots_.size(); ++at)
            if (!isPlaced_[at])
                place(at);
        return std::move(placed_);
    }

private:
    struct Children {
        std::vector<std::size_t> partial;
        std::vector<std::size_t> complete;
        std::size_t partialLeft = 0;
    };
    using Earliest = std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>>;

    std::vector<std::size_t>& childrenOf(std::size_t at) {
        Children& children = children_[snapshots_[at].parent];
        children.partialLeft += snapshots_[at].isPartial ? 1U : 0U;
        return snapshots_[at].isPartial ? children.partial : children.complete;
    }
    void placeReady() {
        while (!ready_.empty()) {
            const std::size_t at = ready_.top();
            ready_.pop();
            place(at);
            if (const auto own = children_.find(snapshots_[at].id); own != children_.end())
                release(own->second.partial.empty() ? own->second.complete : own->second.partial);
            // A complete snapshot becomes the parent of later ones, so partial ones with the same parent
            // are older.
            if (const auto siblings = children_.find(snapshots_[at].parent);
                siblings != children_.end() && snapshots_[at].isPartial &&
                --siblings->second.partialLeft == 0)
                release(siblings->second.complete);
        }
    }
    void release(const std::vector<std::size_t>& all) {
        for (const std::size_t each : all)
            ready_.push(each);
    }
    void place(std::size_t at) {
        isPlaced_[at] = true;
        placed_.push_back(snapshots_[at]);
    }

    const std::vector<Snapshot>& snapshots_;
    std::vector<bool> isPlaced_;
    std::map<std::string, Children> children_; // By the parent's id.
    Earliest ready_;
    std::vector<Snapshot> placed_;
};

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    return path == folder || path.starts_with(withSeparator(folder));
}

} // namespace

bool Snapshot::tellsOf(std::string_view path) const {
    const auto concerns = [path](const std::string& lacked) {
        return isAtOrBelow(path, lacked) || isAtOrBelow(lacked, path);
    };
    return lacks.empty() ? !isPartial : std::ranges::none_of(lacks, concerns);
}

std::vector<Snapshot> inOrderOfCreation(std::vector<Snapshot> snapshots) {
    std::ranges::stable_sort(snapshots, {}, &Snapshot::time);
    std::vector<Snapshot> ordered = ParentOrder(snapshots).run();
    std::ranges::stable_sort(ordered, {}, &Snapshot::sequence);
    return ordered;
}

} // namespace kelvane
