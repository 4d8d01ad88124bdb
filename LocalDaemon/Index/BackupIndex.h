#pragma once

#include "LocalDaemon/Index/FileTotals.h"
#include "LocalDaemon/Restic/Damage.h"
#include "LocalDaemon/Restic/Snapshots.h"
#include "Platform/Files/FileSystem.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// A path in the backup, independent of an index.
struct BackedUpItem {
    SnapshotItem item;
    std::int64_t backedUp = 0;  // Seconds since 1970: when this version was first saved.
    std::uint32_t version = 0;  // The number of the snapshot that first saved this version.
    std::uint32_t snapshot = 0; // The number of the newest snapshot that has this version.
};

// The contents of the backup: each path once, in its newest version, including paths that later
// snapshots lack because they were deleted or excluded. Such a path keeps the last snapshot that had it,
// and remains in the index for as long as that snapshot is in the repository.
//
// Immutable: any thread may read one that it holds. Finding a path takes one binary search per
// component.
class BackupIndex {
public:
    // The keys are numbers, starting at 1, in the order of creation.
    using Snapshots = std::map<std::uint32_t, Snapshot>;

    struct Item {
        std::uint64_t size = 0;    // In bytes.
        std::int64_t backedUp = 0; // `backedUp`, `version` and `snapshot` are as in BackedUpItem.
        FileTime modified;
        FileTime changed;
        std::uint32_t version = 0;
        std::uint32_t snapshot = 0; // 0 for a folder of which only the contents are known.
        std::uint32_t uid = 0;
        std::uint32_t gid = 0;
        std::uint16_t mode = 0;
        ItemKind kind = ItemKind::Folder;

    private:
        friend class BackupIndex;
        bool hasLinkBelow = false;
        std::uint16_t nameLength = 0;
        std::uint32_t parent = 0;
        std::uint32_t firstChild = 0;
        std::uint32_t childCount = 0;
        std::uint64_t nameOffset = 0;
        std::uint64_t filesBelow = 0;
        std::uint64_t bytesBelow = 0;
    };

    BackupIndex() : BackupIndex({}, {}, {}) {} // An empty index of no repository.
    // The items may have any order. When several have the same path, the one of the newest snapshot is
    // used.
    BackupIndex(std::string repositoryId, Snapshots snapshots, std::vector<BackedUpItem> items);

    [[nodiscard]] const std::string& repositoryId() const { return repositoryId_; }
    [[nodiscard]] const Snapshots& snapshots() const { return snapshots_; }
    // Returns the snapshots without their numbers.
    [[nodiscard]] std::vector<Snapshot> inOrderOfCreation() const;
    // Returns null when nothing has been backed up.
    [[nodiscard]] const Snapshot* newestSnapshot() const;
    [[nodiscard]] const Snapshot* newestCompleteSnapshot() const;
    // Returns the snapshot with this number, null when it was forgotten.
    [[nodiscard]] const Snapshot* snapshot(std::uint32_t number) const;

    [[nodiscard]] bool holdsSnapshot(std::string_view id) const;

    // Returns null when the path (absolute and clean) is not in the backup.
    [[nodiscard]] const Item* find(std::string_view path) const;
    // Returns null when the folder, which may be null, has no child of this name.
    [[nodiscard]] const Item* child(const Item* folder, std::string_view name) const;
    // Returns the children of a folder, sorted by name.
    [[nodiscard]] std::span<const Item> children(const Item& folder) const;
    [[nodiscard]] const Item& root() const { return items_.front(); } // The item of "/".
    [[nodiscard]] std::string_view nameOf(const Item& item) const;    // Empty for "/".
    [[nodiscard]] std::string pathOf(const Item& item) const;
    // Returns the totals of the files in a folder and all folders below it, or of the file itself.
    [[nodiscard]] FileTotals totalsOf(const Item& item) const;
    // Returns true for a file, a link, and a folder that has one below it.
    [[nodiscard]] bool hasContent(const Item& item) const;
    [[nodiscard]] FileTotals totals() const { return totalsOf(root()); }
    [[nodiscard]] std::size_t itemCount() const { return items_.size(); }

    // Returns the same index with the known damage, which is not saved in the index file.
    [[nodiscard]] BackupIndex withDamage(std::shared_ptr<const Damage> damage) const;
    // Null when no damage is known.
    [[nodiscard]] const std::shared_ptr<const Damage>& damage() const { return damage_; }
    // Returns whether the newest version cannot be restored.
    [[nodiscard]] bool isDamaged(const Item& item) const;

    // Returns the index after the snapshot `number`, which has the same contents as `previous`, the one
    // before it.
    [[nodiscard]] BackupIndex withSameContents(std::uint32_t previous, std::uint32_t number) const;

    [[nodiscard]] BackedUpItem copyOf(const Item& item) const;
    // Visits each item, a folder before its contents.
    template <class Visit>
    void forEach(Visit visit) const {
        for (const Item& item : items_)
            visit(item);
    }

    // Encode and decode the index file. Decoding an unknown or damaged form yields no index.
    [[nodiscard]] std::vector<std::uint8_t> encoded() const;
    [[nodiscard]] static std::optional<BackupIndex> decoded(std::span<const std::uint8_t> bytes);

private:
    struct Branch; // A folder whose children are still to be placed.

    void layChildren(const Branch& branch, const std::vector<BackedUpItem>& items,
                     std::vector<Branch>& branches);
    void append(std::string_view name, std::uint32_t parent, const BackedUpItem* item);
    [[nodiscard]] bool takeDecoded(Item item, std::string_view name, std::uint8_t kind);
    void sumUp();
    [[nodiscard]] std::uint32_t placeOf(const Item& item) const {
        return static_cast<std::uint32_t>(&item - items_.data());
    }

    std::string repositoryId_;
    Snapshots snapshots_;
    // Stored level by level, so that the children of a folder are adjacent.
    std::vector<Item> items_;
    std::string names_;
    std::shared_ptr<const Damage> damage_;
};

// Returns whether the item on the disk is unchanged since it was saved. For a folder only the kind is
// compared, since its contents are items of their own. restic stores only the years 0 to 9999, so any two
// times before that range compare as equal, and any two after it.
[[nodiscard]] bool isUnchanged(const BackupIndex::Item& item, ItemKind kind, std::uint64_t size,
                               FileTime modified, FileTime changed);
[[nodiscard]] bool isUnchanged(const BackupIndex::Item& item, const FileAttributes& attributes);

// Returns whether a folder's own attributes are unchanged. A changed modification time does not matter:
// creating and deleting entries changes both times of a folder and is counted separately. A change of the
// inode change time (ctime) alone does, since it is all that a new ACL or extended attribute changes.
[[nodiscard]] bool hasSavedAttributes(const BackupIndex::Item& folder, std::uint32_t uid, std::uint32_t gid,
                                      std::uint16_t mode, FileTime modified, FileTime changed);

// Returns the index after one more snapshot, whose contents are `held`.
[[nodiscard]] BackupIndex indexWith(const BackupIndex& before, const std::string& repositoryId,
                                    const Snapshot& snapshot, std::vector<SnapshotItem> held);

// Returns the index with the contents of a snapshot that it already has a number for and that need not be
// the newest. Items that a newer snapshot has do not change.
[[nodiscard]] BackupIndex indexWithContents(const BackupIndex& before, std::uint32_t number,
                                            std::vector<SnapshotItem> held);

// Returns the index with a number for each of these snapshots. It may know some of them already; the
// contents of the others are not known yet. Returns no index when the known snapshots have a different
// order.
[[nodiscard]] std::optional<BackupIndex> indexNumbering(const BackupIndex& before,
                                                        const std::vector<Snapshot>& inOrderOfCreation);

// Returns the index without the items that only forgotten snapshots have, those not in `kept`.
[[nodiscard]] BackupIndex indexOfKept(const BackupIndex& before, const std::vector<Snapshot>& kept);

// Returns the damage that is known after the snapshot with this number. A damaged file that did not
// change has the same damaged blobs there, and a new version of it may have them, until a verification
// finds it intact.
[[nodiscard]] Damage damageAfter(const BackupIndex& before, const BackupIndex& next, std::uint32_t number);

} // namespace kelvane
