#include "LocalDaemon/Index/LeftOut.h"

#include <algorithm>

namespace kelvane {

bool wasDeleted(const BackupIndex& index, const BackupIndex::Item& folder, const BackupIndex::Item& child) {
    if (child.snapshot == 0 || child.snapshot >= folder.snapshot)
        return false;
    const auto& snapshots = index.snapshots();
    const std::string path = index.pathOf(child);
    return std::any_of(snapshots.upper_bound(child.snapshot), snapshots.upper_bound(folder.snapshot),
                       [&](const auto& each) { return each.second.tellsOf(path); });
}

bool isLeftOut(const BackupIndex& index, std::string_view path) {
    const BackupIndex::Item* folder = &index.root();
    while (path.starts_with('/') && path.size() > 1) {
        path.remove_prefix(1);
        const std::string_view name = path.substr(0, path.find('/'));
        const BackupIndex::Item* const child = index.child(folder, name);
        if (!child || wasDeleted(index, *folder, *child))
            return child != nullptr;
        folder = child;
        path.remove_prefix(name.size());
    }
    return false;
}

} // namespace kelvane
