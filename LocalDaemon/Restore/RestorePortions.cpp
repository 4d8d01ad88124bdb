#include "LocalDaemon/Restore/RestorePortions.h"

#include "Foundation/CleanPath.h"

#include <map>
#include <numeric>
#include <set>
#include <tuple>

namespace kelvane {
namespace {

constexpr std::uint64_t portionsInFreeSpace = 8;

// The index has no inode numbers. Names of one inode are equal in all of this; some small files are
// equal as well and are needlessly kept together.
using InodeKey = std::tuple<std::uint64_t, FileTime, FileTime, std::uint32_t, std::uint32_t>;
InodeKey keyOf(const BackupIndex::Item& file) {
    return {file.size, file.modified, file.changed, file.uid, file.gid};
}
// Files below this size (bytes) are counted each, even if they may be names of one inode.
constexpr std::uint64_t smallFile = std::uint64_t{64} << 10U;

class Division {
public:
    Division(const BackupIndex& index, std::uint64_t most) : index_(index), most_(most) {}

    void add(const RestorePiece& piece) {
        const BackupIndex::Item& item = *piece.item;
        if (item.kind != ItemKind::Folder || lastTotals(index_, item).bytes <= most_)
            return addUnit(piece);
        if (item.snapshot != 0)
            result_.folders.push_back(
                {.job = piece.job, .item = piece.item, .target = piece.target, .isFolderAlone = true});
        for (const BackupIndex::Item* const child : lastContents(index_, item))
            add({.job = piece.job,
                 .item = child,
                 .target = withSeparator(piece.target).append(index_.nameOf(*child))});
    }
    RestorePortions take() {
        std::map<std::size_t, RestorePieces> joined;
        for (std::size_t unit = 0; unit < units_.size(); ++unit)
            joined[rootOf(unit)].push_back(std::move(units_[unit]));
        for (auto& [unit, pieces] : joined)
            addToPortion(std::move(pieces));
        return std::move(result_);
    }

private:
    void addUnit(const RestorePiece& piece) {
        parents_.push_back(units_.size());
        units_.push_back(piece);
        noteFiles(*piece.item, units_.size() - 1);
    }
    void noteFiles(const BackupIndex::Item& item, std::size_t unit) {
        if (item.kind == ItemKind::File)
            parents_[rootOf(unit)] = rootOf(firstUnits_.try_emplace(keyOf(item), unit).first->second);
        for (const BackupIndex::Item* const child : lastContents(index_, item))
            noteFiles(*child, unit);
    }
    std::size_t rootOf(std::size_t unit) {
        while (parents_[unit] != unit)
            unit = parents_[unit] = parents_[parents_[unit]];
        return unit;
    }
    void addToPortion(RestorePieces pieces) {
        std::set<InodeKey> seen;
        std::uint64_t bytes = 0;
        for (const RestorePiece& piece : pieces)
            bytes += bytesOf(*piece.item, seen);
        if (result_.portions.empty() || result_.portions.back().bytes + bytes > most_)
            result_.portions.emplace_back();
        RestorePortion& portion = result_.portions.back();
        portion.bytes += bytes;
        std::ranges::move(pieces, std::back_inserter(portion.pieces));
    }
    std::uint64_t bytesOf(const BackupIndex::Item& item, std::set<InodeKey>& seen) const {
        std::uint64_t bytes = 0;
        if (item.kind == ItemKind::File && (item.size < smallFile || seen.insert(keyOf(item)).second))
            bytes = item.size;
        for (const BackupIndex::Item* const child : lastContents(index_, item))
            bytes += bytesOf(*child, seen);
        return bytes;
    }

    const BackupIndex& index_;
    const std::uint64_t most_;
    RestorePortions result_;
    RestorePieces units_;
    std::vector<std::size_t> parents_; // The parents of units in the union-find forest.
    std::map<InodeKey, std::size_t> firstUnits_;
};

} // namespace

RestorePortions divided(const BackupIndex& index, const RestorePieces& pieces, std::uint64_t freeSpace) {
    Division division(index, freeSpace / portionsInFreeSpace);
    for (const RestorePiece& piece : pieces)
        division.add(piece);
    return division.take();
}

} // namespace kelvane
