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

// A path in the backup, apart from any index.
struct BackedUpItem {
    SnapshotItem item;
    std::int64_t backedUp = 0;  // seconds since 1970: when it was first saved as it is now
    std::uint32_t version = 0;  // the number of the snapshot of that time
    std::uint32_t snapshot = 0; // the number of the newest snapshot that holds it
};

// Everything that the backup holds: each path once, in its newest version, also what later snapshots do not
// hold because it is gone from the disk or from the selection. Such a path keeps the snapshot that held it
// last, and is in the index for as long as that snapshot is in the repository.
//
// A value that never changes: any thread may read one that it holds. Finding a path takes a binary search a
// component.
class BackupIndex {
public:
    using Snapshots = std::map<std::uint32_t, Snapshot>; // by number: 1 and up, in the order of creation

    struct Item {
        std::uint64_t size = 0;    // bytes
        std::int64_t backedUp = 0; // as in BackedUpItem, and so are `version` and `snapshot`
        FileTime modified;
        FileTime changed;
        std::uint32_t version = 0;
        std::uint32_t snapshot = 0; // 0: a folder of which only contents are known
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

    BackupIndex() : BackupIndex({}, {}, {}) {} // of no repository
    // The items come in any order. Of several with the same path the one of the newest snapshot counts.
    BackupIndex(std::string repositoryId, Snapshots snapshots, std::vector<BackedUpItem> items);

    [[nodiscard]] const std::string& repositoryId() const { return repositoryId_; }
    [[nodiscard]] const Snapshots& snapshots() const { return snapshots_; }
    [[nodiscard]] std::vector<Snapshot> inOrderOfCreation() const; // without their numbers
    // Null when nothing has been backed up.
    [[nodiscard]] const Snapshot* newestSnapshot() const;
    [[nodiscard]] const Snapshot* newestCompleteSnapshot() const;
    // Of the number of an item, or of a version that is asked for; null when it is not there any more.
    [[nodiscard]] const Snapshot* snapshot(std::uint32_t number) const;

    [[nodiscard]] bool holdsSnapshot(std::string_view id) const;

    // Null when the path (absolute and clean) is not in the backup.
    [[nodiscard]] const Item* find(std::string_view path) const;
    // Null when the folder, which may be null itself, has none of that name.
    [[nodiscard]] const Item* child(const Item* folder, std::string_view name) const;
    // Of a folder, sorted by name.
    [[nodiscard]] std::span<const Item> children(const Item& folder) const;
    [[nodiscard]] const Item& root() const { return items_.front(); } // of "/"
    [[nodiscard]] std::string_view nameOf(const Item& item) const;    // empty of "/"
    [[nodiscard]] std::string pathOf(const Item& item) const;
    // The files in a folder and all folders below it, or the file itself.
    [[nodiscard]] FileTotals totalsOf(const Item& item) const;
    // Whether it is a file or a link, or a folder that has some below.
    [[nodiscard]] bool hasContent(const Item& item) const;
    [[nodiscard]] FileTotals totals() const { return totalsOf(root()); }
    [[nodiscard]] std::size_t itemCount() const { return items_.size(); }

    // The same index, with what is known to be damaged. It does not go into the file.
    [[nodiscard]] BackupIndex withDamage(std::shared_ptr<const Damage> damage) const;
    [[nodiscard]] const std::shared_ptr<const Damage>& damage() const { return damage_; } // null: none
    // Whether the repository cannot give it back as it is now.
    [[nodiscard]] bool isDamaged(const Item& item) const;

    // The same index where the snapshot `number` holds just what `previous` does, the one before it.
    [[nodiscard]] BackupIndex withSameContents(std::uint32_t previous, std::uint32_t number) const;

    [[nodiscard]] BackedUpItem copyOf(const Item& item) const;
    // Each item, a folder before what is in it.
    template <class Visit>
    void forEach(Visit visit) const {
        for (const Item& item : items_)
            visit(item);
    }

    // For a file; of no known form or damaged: none.
    [[nodiscard]] std::vector<std::uint8_t> encoded() const;
    [[nodiscard]] static std::optional<BackupIndex> decoded(std::span<const std::uint8_t> bytes);

private:
    struct Branch; // a folder whose children are still to be laid down

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
    // Level by level, so that the children of a folder stand together.
    std::vector<Item> items_;
    std::string names_;
    std::shared_ptr<const Damage> damage_;
};

// Whether what stands on the disk is still what was saved. Of a folder only that it is one: what matters of
// it is what is in it. restic keeps times of the years 0 to 9999; of one beyond these only that it is beyond.
[[nodiscard]] bool isUnchanged(const BackupIndex::Item& item, ItemKind kind, std::uint64_t size,
                               FileTime modified, FileTime changed);
[[nodiscard]] bool isUnchanged(const BackupIndex::Item& item, const FileAttributes& attributes);

// Whether a folder's own attributes are still what was saved. What is created or deleted in it changes both
// times and counts by itself; only the second tells of a new ACL or extended attribute.
[[nodiscard]] bool hasSavedAttributes(const BackupIndex::Item& folder, std::uint32_t uid, std::uint32_t gid,
                                      std::uint16_t mode, FileTime modified, FileTime changed);

// The index after one more snapshot: `held` is what that one holds.
[[nodiscard]] BackupIndex indexWith(const BackupIndex& before, const std::string& repositoryId,
                                    const Snapshot& snapshot, std::vector<SnapshotItem> held);

// The same with a snapshot that the index has a number of, and that need not be the newest: of what newer
// ones hold, nothing changes.
[[nodiscard]] BackupIndex indexWithContents(const BackupIndex& before, std::uint32_t number,
                                            std::vector<SnapshotItem> held);

// The index with a number for each of these snapshots, of which it may know some and not what the others
// hold. None when it has those that it knows in another order.
[[nodiscard]] std::optional<BackupIndex> indexNumbering(const BackupIndex& before,
                                                        const std::vector<Snapshot>& inOrderOfCreation);

// The index without what only forgotten snapshots hold: those that are not among `kept`.
[[nodiscard]] BackupIndex indexOfKept(const BackupIndex& before, const std::vector<Snapshot>& kept);

// What is known to be damaged after the snapshot with that number was made: what was damaged and has not
// changed consists of the same there, and a new version of such a file may, until a verification finds it
// whole.
[[nodiscard]] Damage damageAfter(const BackupIndex& before, const BackupIndex& next, std::uint32_t number);

} // namespace kelvane
