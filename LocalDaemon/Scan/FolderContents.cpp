#include "LocalDaemon/Scan/FolderContents.h"

#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "Platform/Files/MountTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

// Returns null and sets errno when the folder cannot be opened or is a link.
OpenFolder openFolder(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return nullptr;
    OpenFolder folder(::fdopendir(descriptor));
    if (!folder) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
    }
    return folder;
}

bool isTargetLostIn(int folder, const char* name) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlinkat(folder, name, target.data(), target.size());
    return length > 0 && !isUtf8({target.data(), static_cast<std::size_t>(length)});
}

void count(FolderContents& contents, int folder, const char* name, const struct stat& status,
           const EntryPredicate& isPending) {
    if (S_ISDIR(status.st_mode)) {
        contents.subfolders.emplace_back(name);
        return;
    }
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
        return;
    const bool isFile = S_ISREG(status.st_mode);
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const bool isLossy = !isFile && isTargetLostIn(folder, name);
    if (isLossy)
        contents.lossyLinks.emplace_back(name);
    const bool waits = isPending({.name = name,
                                  .kind = isFile ? ItemKind::File : ItemKind::Link,
                                  .size = size,
                                  .modified = FileTime(status.st_mtim),
                                  .changed = FileTime(status.st_ctim)}) ||
                       isLossy;
    if (isFile)
        contents.own.files += {1, size};
    if (isFile && waits)
        contents.own.pending += {1, size};
    if (!isFile && waits)
        ++contents.own.otherPending;
}

bool isSelfOrParent(std::string_view name) {
    return name == "." || name == "..";
}

// Returns null at the end, and after a failure, which sets `error`.
const dirent* nextEntry(DIR& folder, int& error) {
    errno = 0;
    const dirent* const entry = ::readdir(&folder);
    if (entry == nullptr)
        error = errno;
    return entry;
}

} // namespace

bool isTargetLost(const std::string& path) {
    return isTargetLostIn(AT_FDCWD, path.c_str());
}

bool isEncrypted(const std::string& folder) {
    struct statx status {};
    return ::statx(AT_FDCWD, folder.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE, &status) ==
               0 &&
           (status.stx_attributes & STATX_ATTR_ENCRYPTED) != 0;
}

FolderContents contentsOfFolder(const std::string& path, const std::atomic<bool>& stopping,
                                const EntryFilter& entryFilter, const EntryPredicate& isPending) {
    FolderContents contents;
    const OpenFolder folder = openFolder(path);
    struct stat own {};
    if (!folder || ::fstat(::dirfd(folder.get()), &own) != 0) {
        contents.error = errno;
        return contents;
    }
    contents.modified = FileTime(own.st_mtim);
    contents.changed = FileTime(own.st_ctim);
    contents.uid = own.st_uid;
    contents.gid = own.st_gid;
    contents.mode = static_cast<std::uint16_t>(own.st_mode & ALLPERMS);
    while (const dirent* const entry = stopping ? nullptr : nextEntry(*folder, contents.error)) {
        const char* const name = &entry->d_name[0];
        if (isSelfOrParent(name))
            continue;
        contents.isEmpty = false;
        const MountPolicy mountPolicy = entryFilter(name);
        if (mountPolicy == MountPolicy::MountPoint)
            contents.mountPoints.emplace_back(name);
        struct stat status {};
        // A stat call without AT_NO_AUTOMOUNT would trigger an automount.
        if (mountPolicy == MountPolicy::Refused || mountPolicy == MountPolicy::MountPoint ||
            ::fstatat(::dirfd(folder.get()), name, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
            continue;
        const bool isSubvolume = status.st_dev != own.st_dev && S_ISDIR(status.st_mode) &&
                                 !isMountRoot(::dirfd(folder.get()), name);
        if (mountPolicy == MountPolicy::AnyFileSystem || status.st_dev == own.st_dev || isSubvolume)
            count(contents, ::dirfd(folder.get()), name, status, isPending);
        else
            contents.mountPoints.emplace_back(name);
    }
    std::sort(contents.subfolders.begin(), contents.subfolders.end());
    return contents;
}

FileTotals totalsBelow(const std::string& path, const std::atomic<bool>& stopping) {
    FileTotals totals;
    const auto mounts = currentMountPoints();
    std::vector<std::string> folders{path};
    while (!folders.empty() && !stopping) {
        const std::string folder = std::move(folders.back());
        folders.pop_back();
        const FolderContents contents = contentsOfFolder(
            folder, stopping,
            [&](std::string_view name) {
                return mounts->contains(appendPathComponent(folder, name)) ? MountPolicy::MountPoint
                                                                           : MountPolicy::WithinFileSystem;
            },
            [](const FolderEntry&) { return false; });
        totals += contents.own.files;
        for (const std::string& name : contents.subfolders)
            folders.push_back(appendPathComponent(folder, name));
    }
    return totals;
}

} // namespace kelvane
