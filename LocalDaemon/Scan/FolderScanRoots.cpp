// Updates the scan roots when rules and mounts change.

#include "Foundation/CleanPath.h"
#include "LocalDaemon/Scan/FolderScan.h"

namespace kelvane {

void FolderScan::takeRules() {
    Rules rules;
    {
        const std::scoped_lock guard(mutex_);
        rules.swap(nextRules_);
    }
    if (!rules)
        return;
    rules.swap(rules_);
    selection_ = MountedSelection(rules_, mounts_);
    const bool isOtherMode = rules->automaticMode != rules_->automaticMode;
    dropRootsBut(isOtherMode ? std::set<std::string>() : selection_.scanRoots());
    for (const std::string& path : changedRules(*rules, *rules_))
        lookAgainAt(path);
    // Added last, since a folder that is in the tree of another root must be removed from there first.
    addRoots();
    if (isOtherMode)
        scanEverything();
}

void FolderScan::takeMounts() {
    const std::shared_ptr<const MountPoints> before = std::exchange(mounts_, options_.mounts());
    if (before == mounts_)
        return;
    selection_ = MountedSelection(rules_, mounts_);
    dropRootsBut(selection_.scanRoots());
    for (const auto& all : {before, mounts_})
        for (const auto& [point, type] : *all)
            if (!before->contains(point) || !mounts_->contains(point))
                lookAgainAt(point);
    addRoots();
}

void FolderScan::dropRootsBut(const std::set<std::string>& wanted) {
    std::vector<Folder*> unwanted;
    for (const auto& [path, root] : tree_->roots())
        if (!wanted.contains(path))
            unwanted.push_back(root.get());
    for (Folder* root : unwanted)
        drop(*root);
}

void FolderScan::addRoots() {
    for (const std::string& path : selection_.scanRoots())
        if (!tree_->roots().contains(path))
            dirty_.insert(&tree_->addRoot(path));
}

void FolderScan::drop(Folder& folder) {
    forget(*tree_->remove(folder));
}

void FolderScan::lookAgainAt(const std::string& path) {
    if (Folder* const folder = tree_->find(path);
        folder && folder->parent && !selection_.verdictFor(path).isIn())
        drop(*folder);
    for (const std::string_view each : {std::string_view(path), folderOf(path)})
        if (Folder* const folder = tree_->find(each)) {
            folder->isOnlyRecheck = false;
            dirty_.insert(folder);
        }
}

} // namespace kelvane
