#include "LocalDaemon/Index/BackupIndex.h"

#include "LocalDaemon/Restic/ResticNames.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kelvane {
namespace {

// Compares by components: a folder comes before its contents, and these before its next sibling.
bool comesBefore(const BackedUpItem& left, const BackedUpItem& right) {
    const auto key = [](char each) { return each == '/' ? 0U : static_cast<unsigned char>(each) + 1U; };
    return std::ranges::lexicographical_compare(left.item.path, right.item.path, {}, key, key);
}

// Removes duplicates of a path, which an intact repository does not contain.
void keepNewestOfEachPath(std::vector<BackedUpItem>& items) {
    const auto isSame = [](const BackedUpItem& left, const BackedUpItem& right) {
        return left.item.path == right.item.path;
    };
    auto at = std::ranges::adjacent_find(items, isSame);
    if (at == items.end())
        return;
    std::ranges::stable_sort(items, [](const BackedUpItem& left, const BackedUpItem& right) {
        return left.item.path == right.item.path ? left.snapshot > right.snapshot : comesBefore(left, right);
    });
    items.erase(std::unique(items.begin(), items.end(), isSame), items.end());
}

// Seconds since 1970.
constexpr std::int64_t beginOfYear0 = -62167219200;
constexpr std::int64_t beginOfYear10000 = 253402300800;

// restic keeps the years 0 to 9999 and moves any other time into the nearer of the two, with the same
// month and day.
bool isKeptAs(FileTime saved, std::int64_t secondsOnDisk) {
    return (secondsOnDisk < beginOfYear0 || secondsOnDisk >= beginOfYear10000) && isAtEndOfKeptTimes(saved) &&
           (secondsOnDisk < 0) == (saved.seconds() < 0);
}
bool isKeptAs(FileTime saved, FileTime onDisk) {
    return saved == onDisk || isKeptAs(saved, onDisk.seconds());
}
bool isKeptAs(FileTime saved, Date onDisk) {
    return onDisk == dateFromTime(saved.seconds(), saved.nanoseconds()) ||
           isKeptAs(saved, static_cast<std::int64_t>(onDisk.secondsSinceReference) + Date::referenceTime);
}

} // namespace

// A folder whose children are still to be placed: the items [begin, end) are those below it, and its
// path with a separator is `prefix` bytes long.
struct BackupIndex::Branch {
    std::uint32_t folder = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t prefix = 0;
};

BackupIndex::BackupIndex(std::string repositoryId, Snapshots snapshots, std::vector<BackedUpItem> items)
    : repositoryId_(std::move(repositoryId)), snapshots_(std::move(snapshots)) {
    std::erase_if(items, [](const BackedUpItem& each) { return each.item.path == "/"; });
    std::ranges::sort(items, comesBefore);
    keepNewestOfEachPath(items);
    items_.reserve(items.size() + 1);
    append({}, 0, nullptr);
    std::vector<Branch> branches{{.folder = 0, .begin = 0, .end = items.size(), .prefix = 1}};
    for (std::size_t next = 0; next < branches.size(); ++next)
        layChildren(Branch(branches[next]), items, branches);
    sumUp();
}

void BackupIndex::layChildren(const Branch& branch, const std::vector<BackedUpItem>& items,
                              std::vector<Branch>& branches) {
    items_[branch.folder].firstChild = static_cast<std::uint32_t>(items_.size());
    for (std::size_t at = branch.begin; at < branch.end;) {
        const std::string_view path = items[at].item.path;
        const std::string_view name =
            path.substr(branch.prefix, path.find('/', branch.prefix) - branch.prefix);
        const std::size_t length = branch.prefix + name.size();
        const bool isItself = path.size() == length;
        const std::string inside = std::string(path.substr(0, length)) + '/';
        const std::size_t below = at + (isItself ? 1 : 0);
        const auto behind = std::partition_point(
            items.begin() + static_cast<std::ptrdiff_t>(below),
            items.begin() + static_cast<std::ptrdiff_t>(branch.end),
            [&](const BackedUpItem& each) { return each.item.path.starts_with(inside); });
        const auto end = static_cast<std::size_t>(behind - items.begin());
        const auto place = static_cast<std::uint32_t>(items_.size());
        append(name, branch.folder, isItself ? &items[at] : nullptr);
        if (below < end)
            branches.push_back({.folder = place, .begin = below, .end = end, .prefix = length + 1});
        at = end;
    }
    items_[branch.folder].childCount =
        static_cast<std::uint32_t>(items_.size()) - items_[branch.folder].firstChild;
}

void BackupIndex::append(std::string_view name, std::uint32_t parent, const BackedUpItem* item) {
    Item added;
    if (item) {
        added.size = item->item.size;
        added.modified = item->item.modified;
        added.changed = item->item.changed;
        added.backedUp = item->backedUp;
        added.version = item->version;
        added.snapshot = item->snapshot;
        added.uid = item->item.uid;
        added.gid = item->item.gid;
        added.mode = item->item.mode;
        added.kind = item->item.kind;
    }
    added.parent = parent;
    added.nameOffset = names_.size();
    added.nameLength = static_cast<std::uint16_t>(name.size());
    names_ += name;
    items_.push_back(added);
}

// Adds up from the leaves to the root, since every item comes after its folder.
void BackupIndex::sumUp() {
    for (std::size_t at = items_.size() - 1; at > 0; --at) {
        const Item& item = items_[at];
        Item& parent = items_[item.parent];
        const FileTotals totals = totalsOf(item);
        parent.filesBelow += totals.count;
        parent.bytesBelow += totals.bytes;
        parent.hasLinkBelow = parent.hasLinkBelow || item.hasLinkBelow || item.kind == ItemKind::Link;
    }
}

std::vector<Snapshot> BackupIndex::inOrderOfCreation() const {
    std::vector<Snapshot> all;
    for (const auto& [number, snapshot] : snapshots_)
        all.push_back(snapshot);
    return all;
}

const Snapshot* BackupIndex::newestSnapshot() const {
    return snapshots_.empty() ? nullptr : &snapshots_.rbegin()->second;
}

const Snapshot* BackupIndex::newestCompleteSnapshot() const {
    const auto newest = std::find_if(snapshots_.rbegin(), snapshots_.rend(),
                                     [](const auto& each) { return !each.second.isPartial; });
    return newest == snapshots_.rend() ? nullptr : &newest->second;
}

const Snapshot* BackupIndex::snapshot(std::uint32_t number) const {
    const auto found = snapshots_.find(number);
    return found == snapshots_.end() ? nullptr : &found->second;
}

bool BackupIndex::holdsSnapshot(std::string_view id) const {
    return std::ranges::any_of(snapshots_, [id](const auto& known) { return known.second.id == id; });
}

const BackupIndex::Item* BackupIndex::find(std::string_view path) const {
    const Item* item = &root();
    while (item && path.starts_with('/') && path.size() > 1) {
        path.remove_prefix(1);
        const std::string_view name = path.substr(0, path.find('/'));
        item = child(item, name);
        path.remove_prefix(name.size());
    }
    return item;
}

const BackupIndex::Item* BackupIndex::child(const Item* folder, std::string_view name) const {
    if (!folder)
        return nullptr;
    const auto all = children(*folder);
    const auto found =
        std::ranges::lower_bound(all, name, {}, [this](const Item& each) { return nameOf(each); });
    return found != all.end() && nameOf(*found) == name ? &*found : nullptr;
}

std::span<const BackupIndex::Item> BackupIndex::children(const Item& folder) const {
    return std::span(items_).subspan(folder.firstChild, folder.childCount);
}

std::string_view BackupIndex::nameOf(const Item& item) const {
    return std::string_view(names_).substr(item.nameOffset, item.nameLength);
}

std::string BackupIndex::pathOf(const Item& item) const {
    if (&item == &root())
        return "/";
    std::vector<const Item*> chain;
    for (const Item* at = &item; at != &root(); at = &items_[at->parent])
        chain.push_back(at);
    std::string path;
    for (auto each = chain.rbegin(); each != chain.rend(); ++each)
        path.append("/").append(nameOf(**each));
    return path;
}

FileTotals BackupIndex::totalsOf(const Item& item) const {
    if (item.kind == ItemKind::File)
        return {1 + item.filesBelow, item.size + item.bytesBelow};
    return {item.filesBelow, item.bytesBelow};
}

bool BackupIndex::hasContent(const Item& item) const {
    return item.kind != ItemKind::Folder || item.filesBelow > 0 || item.hasLinkBelow;
}

BackupIndex BackupIndex::withDamage(std::shared_ptr<const Damage> damage) const {
    BackupIndex index = *this;
    index.damage_ = damage && !damage->isNone() ? std::move(damage) : nullptr;
    return index;
}

BackupIndex BackupIndex::withSameContents(std::uint32_t previous, std::uint32_t number) const {
    BackupIndex index = *this;
    for (Item& item : index.items_)
        if (item.snapshot == previous)
            item.snapshot = number;
    return index;
}

bool BackupIndex::isDamaged(const Item& item) const {
    if (!damage_ || item.kind == ItemKind::Folder)
        return false;
    const Snapshot* const held = snapshot(item.snapshot);
    return held && damage_->holds(held->id, nameInResticJson(pathOf(item)));
}

BackedUpItem BackupIndex::copyOf(const Item& item) const {
    return {.item = {.path = pathOf(item),
                     .kind = item.kind,
                     .size = item.size,
                     .modified = item.modified,
                     .changed = item.changed,
                     .uid = item.uid,
                     .gid = item.gid,
                     .mode = item.mode},
            .backedUp = item.backedUp,
            .version = item.version,
            .snapshot = item.snapshot};
}

bool isUnchanged(const BackupIndex::Item& item, ItemKind kind, std::uint64_t size, FileTime modified,
                 FileTime changed) {
    if (item.kind != kind || item.snapshot == 0)
        return false;
    if (kind == ItemKind::Folder)
        return true;
    return (kind == ItemKind::Link || item.size == size) && isKeptAs(item.modified, modified) &&
           isKeptAs(item.changed, changed);
}

bool isUnchanged(const BackupIndex::Item& item, const FileAttributes& attributes) {
    using Kind = FileAttributes::Kind;
    if (attributes.kind == Kind::Other || item.snapshot == 0)
        return false;
    if (attributes.kind == Kind::Directory || item.kind == ItemKind::Folder)
        return attributes.kind == Kind::Directory && item.kind == ItemKind::Folder;
    return (attributes.kind == Kind::File) == (item.kind == ItemKind::File) &&
           (item.kind == ItemKind::Link || item.size == attributes.size) &&
           isKeptAs(item.modified, attributes.modified) && isKeptAs(item.changed, attributes.statusChanged);
}

bool hasSavedAttributes(const BackupIndex::Item& folder, std::uint32_t uid, std::uint32_t gid,
                        std::uint16_t mode, FileTime modified, FileTime changed) {
    const bool isOnlyChanged = isKeptAs(folder.modified, modified) && !isKeptAs(folder.changed, changed);
    return folder.uid == uid && folder.gid == gid && folder.mode == mode && !isOnlyChanged;
}

namespace {

BackupIndex withContents(const BackupIndex& before, const std::string& repositoryId,
                         BackupIndex::Snapshots snapshots, std::uint32_t number,
                         std::vector<SnapshotItem> held) {
    std::vector<BackedUpItem> items;
    std::vector<const BackupIndex::Item*> replaced;
    const std::int64_t time = snapshots[number].time;
    for (SnapshotItem& each : held) {
        const BackupIndex::Item* const old = before.find(each.path);
        if (old && old->snapshot > number)
            continue;
        const bool isSame = old && isUnchanged(*old, each.kind, each.size, each.modified, each.changed);
        items.push_back(
            {std::move(each), isSame ? old->backedUp : time, isSame ? old->version : number, number});
        if (old)
            replaced.push_back(old);
    }
    std::ranges::sort(replaced);
    before.forEach([&](const BackupIndex::Item& item) {
        if (item.snapshot != 0 && !std::ranges::binary_search(replaced, &item))
            items.push_back(before.copyOf(item));
    });
    return {repositoryId, std::move(snapshots), std::move(items)};
}

} // namespace

BackupIndex indexWith(const BackupIndex& before, const std::string& repositoryId, const Snapshot& snapshot,
                      std::vector<SnapshotItem> held) {
    BackupIndex::Snapshots snapshots = before.snapshots();
    const std::uint32_t number = snapshots.empty() ? 1 : snapshots.rbegin()->first + 1;
    snapshots[number] = snapshot;
    return withContents(before, repositoryId, std::move(snapshots), number, std::move(held));
}

BackupIndex indexWithContents(const BackupIndex& before, std::uint32_t number,
                              std::vector<SnapshotItem> held) {
    return withContents(before, before.repositoryId(), before.snapshots(), number, std::move(held));
}

std::optional<BackupIndex> indexNumbering(const BackupIndex& before,
                                          const std::vector<Snapshot>& inOrderOfCreation) {
    std::map<std::string_view, std::uint32_t> known;
    for (const auto& [number, snapshot] : before.snapshots())
        known[snapshot.id] = number;
    BackupIndex::Snapshots snapshots;
    std::map<std::uint32_t, std::uint32_t> shifts; // By the number that a snapshot had before.
    std::uint32_t last = 0;
    for (const Snapshot& each : inOrderOfCreation) {
        const auto had = known.find(each.id);
        last = had == known.end() ? last + 1 : std::max(last + 1, had->second);
        snapshots[last] = each;
        if (had == known.end())
            continue;
        if (!shifts.empty() && shifts.rbegin()->first > had->second)
            return std::nullopt;
        shifts[had->second] = last - had->second;
    }
    // The snapshot that first held a version may have been forgotten; it was older than an existing one.
    const auto shifted = [&](std::uint32_t number) {
        const auto next = shifts.lower_bound(number);
        return next == shifts.end() ? number : number + next->second;
    };
    std::vector<BackedUpItem> items;
    before.forEach([&](const BackupIndex::Item& item) {
        if (!shifts.contains(item.snapshot))
            return;
        items.push_back(before.copyOf(item));
        items.back().version = shifted(item.version);
        items.back().snapshot = shifted(item.snapshot);
    });
    return BackupIndex(before.repositoryId(), std::move(snapshots), std::move(items));
}

BackupIndex indexOfKept(const BackupIndex& before, const std::vector<Snapshot>& kept) {
    BackupIndex::Snapshots snapshots;
    for (const auto& [number, snapshot] : before.snapshots())
        if (std::ranges::find(kept, snapshot.id, &Snapshot::id) != kept.end())
            snapshots[number] = snapshot;
    std::vector<BackedUpItem> items;
    before.forEach([&](const BackupIndex::Item& item) {
        if (snapshots.contains(item.snapshot))
            items.push_back(before.copyOf(item));
    });
    return {before.repositoryId(), std::move(snapshots), std::move(items)};
}

Damage damageAfter(const BackupIndex& before, const BackupIndex& next, std::uint32_t number) {
    Damage damage = before.damage() ? *before.damage() : Damage();
    if (damage.isNone())
        return damage;
    const std::string& id = next.snapshot(number)->id;
    next.forEach([&](const BackupIndex::Item& item) {
        // A new version of a file may contain the same damaged blobs.
        if (item.snapshot != number || (item.version == number && item.kind != ItemKind::File))
            return;
        const std::string path = next.pathOf(item);
        const BackupIndex::Item* const old = before.find(path);
        if (old && before.isDamaged(*old))
            damage.paths[id].insert(nameInResticJson(path));
    });
    return damage;
}

} // namespace kelvane
