// Finds the pending items of a folder.

#include "Foundation/CleanPath.h"
#include "LocalDaemon/Index/LeftOut.h"
#include "LocalDaemon/Scan/FolderScan.h"

#include <algorithm>

namespace kelvane {
namespace {

// Returns how an entry with this rule is counted, in a folder whose other entries are counted as
// `usual`.
MountPolicy mountPolicyOf(const std::optional<Verdict>& rule, MountPolicy usual) {
    if (!rule)
        return usual;
    if (rule->reason == Verdict::Reason::OtherFileSystem && usual != MountPolicy::Refused)
        return MountPolicy::MountPoint;
    return rule->isIn() ? MountPolicy::AnyFileSystem : MountPolicy::Refused;
}

} // namespace

void FolderScan::takeIndex() {
    Index before;
    {
        const std::scoped_lock guard(mutex_);
        before.swap(nextIndex_);
    }
    if (!before)
        return;
    index_.swap(before);
    for (const auto& [path, root] : tree_->roots())
        FolderTree::forEach(*root, [this](Folder& folder) {
            if (folder.own.isPending())
                recheck(folder);
        });
    // An item that was not selected, or not mounted, while the new snapshot was made may be back.
    const std::uint32_t newest = before->snapshots().empty() ? 0 : before->snapshots().rbegin()->first;
    index_->forEach([&](const BackupIndex::Item& around) {
        for (const BackupIndex::Item& item : index_->children(around)) {
            if (item.snapshot < newest || !wasDeleted(*index_, around, item))
                continue;
            const std::string path = index_->pathOf(item);
            if (Folder* const folder = tree_->find(path))
                FolderTree::forEach(*folder, [this](Folder& each) { recheck(each); });
            else if (Folder* const holder = tree_->find(folderOf(path)))
                recheck(*holder);
        }
    });
}

FolderContents FolderScan::contentsOf(const std::string& path) const {
    const MountPolicy mountPolicy =
        selection_.verdictFor(path).isIn() ? MountPolicy::WithinFileSystem : MountPolicy::Refused;
    std::string entry = withSeparator(path);
    const std::size_t length = entry.size();
    const BackupIndex::Item* const saved = index_->find(path);
    const bool isLeftOut = kelvane::isLeftOut(*index_, path);
    std::uint64_t stillThere = 0; // Entries that the last snapshot of the folder has.
    const auto savedEntry = [&](std::string_view name) {
        const BackupIndex::Item* const item = index_->child(saved, name);
        stillThere += item && item->snapshot == saved->snapshot ? 1U : 0U;
        return item;
    };
    FolderContents contents = contentsOfFolder(
        path, stopping_,
        [&](std::string_view name) {
            entry.replace(length, std::string::npos, name);
            return mountPolicyOf(selection_.ruleAt(entry), mountPolicy);
        },
        [&](const FolderEntry& each) { return isPending(each, savedEntry(each.name), saved) || isLeftOut; });
    // The folder itself is pending while the backup lacks it: when a restore would leave it out, or when it
    // is empty, since otherwise its contents are pending instead. An unreadable folder has no entries here
    // and counts too, since it may have any contents. An empty scan root need not be saved.
    if (!tree_->roots().contains(path) && contents.error != ENOENT && mountPolicy != MountPolicy::Refused &&
        (isLeftOut || (contents.isEmpty && !isInLastSnapshot(saved, path))))
        ++contents.own.otherPending;
    // A folder that is not selected itself is saved only because of selected contents.
    if (!saved || saved->snapshot == 0 || contents.error != 0 || mountPolicy == MountPolicy::Refused)
        return contents;
    for (const std::vector<std::string>& names : {contents.subfolders, contents.mountPoints})
        for (const std::string& name : names)
            savedEntry(name);
    contents.own.otherPending += savedIn(*saved) - stillThere; // Deleted or no longer selected.
    if (!hasSavedAttributes(*saved, contents.uid, contents.gid, contents.mode, contents.modified,
                            contents.changed))
        ++contents.own.otherPending;
    return contents;
}

bool FolderScan::isPending(const FolderEntry& entry, const BackupIndex::Item* saved,
                           const BackupIndex::Item* around) const {
    return !saved || wasDeleted(*index_, *around, *saved) ||
           !isUnchanged(*saved, entry.kind, entry.size, entry.modified, entry.changed) ||
           index_->isDamaged(*saved);
}

// Returns whether the newest snapshot of the parent folder contains it as a folder.
bool FolderScan::isInLastSnapshot(const BackupIndex::Item* saved, std::string_view path) const {
    const BackupIndex::Item* const around = index_->find(folderOf(path));
    return saved && saved->kind == ItemKind::Folder && around && saved->snapshot >= around->snapshot;
}

// Returns the number of the folder's entries in its last snapshot.
std::uint64_t FolderScan::savedIn(const BackupIndex::Item& folder) const {
    return static_cast<std::uint64_t>(
        std::ranges::count(index_->children(folder), folder.snapshot, &BackupIndex::Item::snapshot));
}

} // namespace kelvane
