#include "LocalDaemon/Restore/HardLinks.h"

#include <algorithm>

namespace kelvane {

void HardLinks::note(const struct stat& staged, const BackupIndex::Item& item) {
    if (S_ISREG(staged.st_mode) && staged.st_nlink > 1)
        names_[staged.st_ino].push_back(&item);
}

std::string HardLinks::faultOf(const struct stat& staged) {
    const auto names = names_.find(staged.st_ino);
    if (names == names_.end())
        return {};
    const auto [fault, isNew] = faults_.try_emplace(staged.st_ino);
    if (isNew)
        fault->second = compare(names->second);
    return fault->second;
}

std::string HardLinks::compare(const Names& names) {
    const BackupIndex::Item& first = *names.front();
    if (std::ranges::all_of(names, [&](const BackupIndex::Item* each) {
            return isUnchanged(*each, first.kind, first.size, first.modified, first.changed);
        }))
        return {};
    std::optional<std::string> contents;
    for (const BackupIndex::Item* const each : names) {
        RestoreTrouble trouble;
        const Snapshot* const snapshot = index_.snapshot(each->snapshot);
        const auto node = snapshot ? nodes_.find(snapshot->id, index_.pathOf(*each), trouble) : std::nullopt;
        if (!node)
            return "cannot check whether a reused inode number mixed it up with another file: " +
                   trouble.reason;
        if (contents && *contents != node->contents)
            return "it may have the contents of another file, which had its inode number during the same "
                   "backup; restore it separately";
        contents = node->contents;
    }
    return {};
}

} // namespace kelvane
