#include "LocalDaemon/FolderListing.h"

#include <algorithm>
#include <cerrno>
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

// Null with errno set when it cannot be opened or is a link.
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

void count(FolderListing& listing, const dirent& entry, const struct stat& status, dev_t device) {
    if (S_ISREG(status.st_mode))
        listing.own += {1, static_cast<std::uint64_t>(status.st_size)};
    else if (S_ISDIR(status.st_mode) && status.st_dev == device)
        listing.subfolders.emplace_back(&entry.d_name[0]);
}

bool isSelfOrParent(std::string_view name) {
    return name == "." || name == "..";
}

// Null at the end, and with `error` set after a failure.
const dirent* nextEntry(DIR& folder, int& error) {
    errno = 0;
    const dirent* const entry = ::readdir(&folder);
    if (entry == nullptr)
        error = errno;
    return entry;
}

} // namespace

FolderListing listFolder(const std::string& path, const std::atomic<bool>& stopping) {
    FolderListing listing;
    const OpenFolder folder = openFolder(path);
    struct stat own {};
    if (!folder || ::fstat(::dirfd(folder.get()), &own) != 0) {
        listing.error = errno;
        return listing;
    }
    while (const dirent* const entry = stopping ? nullptr : nextEntry(*folder, listing.error)) {
        struct stat status {};
        // Asking about a folder must not mount what is mounted there on demand.
        if (!isSelfOrParent(&entry->d_name[0]) && ::fstatat(::dirfd(folder.get()), &entry->d_name[0], &status,
                                                            AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0)
            count(listing, *entry, status, own.st_dev);
    }
    std::sort(listing.subfolders.begin(), listing.subfolders.end());
    return listing;
}

} // namespace kelvane
