// Checks the staged files before the first of them is delivered.

#include "Foundation/CleanPath.h"
#include "Foundation/PathComponents.h"
#include "LocalDaemon/Restore/RestoreDelivery.h"
#include "LocalDaemon/Restore/Staging/NameClashes.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace kelvane {

void RestoreDelivery::inspect(const std::vector<RestorePiece>& pieces) {
    if (!staging_.tellsNamesApart())
        lookForClashes(pieces);
    for (const RestorePiece& piece : pieces) {
        const std::string folder(folderOf(index_.pathOf(*piece.item)));
        noteHardLinks(*piece.item, stagedFolder(piece.item->snapshot, folder).get(), piece.isFolderAlone);
    }
}

void RestoreDelivery::noteHardLinks(const BackupIndex::Item& item, int staged, bool isFolderAlone) {
    const std::string name(index_.nameOf(item));
    struct stat status {};
    if (item.kind == ItemKind::File && ::fstatat(staged, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        hardLinks_.note(status, item);
    if (item.kind != ItemKind::Folder || isFolderAlone || stop_.isSet())
        return;
    std::map<std::uint32_t, FileDescriptor> folders; // By the snapshot from which the contents are staged.
    folders.emplace(item.snapshot, openFolderIn(staged, name.empty() ? "." : name));
    for (const BackupIndex::Item* const child : lastContents(index_, item)) {
        const auto [folder, isNew] = folders.try_emplace(child->snapshot);
        if (isNew)
            folder->second = stagedFolder(child->snapshot, index_.pathOf(item));
        noteHardLinks(*child, folder->second.get(), false);
    }
}

void RestoreDelivery::lookForClashes(const std::vector<RestorePiece>& pieces) {
    std::map<std::pair<std::uint32_t, std::string>, std::vector<std::string>> folders;
    for (const RestorePiece& piece : pieces) {
        const std::string path = index_.pathOf(*piece.item);
        folders[{piece.item->snapshot, std::string(folderOf(path))}].push_back(lastPathComponent(path));
    }
    for (const auto& [folder, names] : folders)
        lookForClashes(stagedFolder(folder.first, folder.second).get(), folder.second, names);
}

void RestoreDelivery::lookForClashes(int staged, const std::string& folder,
                                     const std::vector<std::string>& names) {
    for (const std::string& name : clashingNames(staged, names))
        clashing_.insert(withSeparator(folder) + name);
}

bool RestoreDelivery::findShared(const BackupIndex::Item& item, int folder) {
    std::map<std::string_view, const BackupIndex::Item*> contents;
    for (const BackupIndex::Item* const child : lastContents(index_, item))
        contents.emplace(index_.nameOf(*child), child);
    std::error_code error;
    bool isShared = false;
    for (std::filesystem::directory_iterator at(pathOfDescriptor(folder), error);
         !error && at != std::filesystem::directory_iterator(); at.increment(error)) {
        const std::string name = at->path().filename();
        const auto child = contents.find(name);
        const FileDescriptor below = openFolderIn(folder, name);
        if (child == contents.end() || (below && child->second->kind != ItemKind::Folder))
            isShared = isShared || !name.starts_with(stagingPrefix);
        else if (below)
            isShared = findShared(*child->second, below.get()) || isShared;
    }
    if (isShared || error)
        shared_.insert(&item);
    return isShared || error;
}

} // namespace kelvane
