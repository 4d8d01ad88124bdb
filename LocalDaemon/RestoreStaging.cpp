#include "LocalDaemon/RestoreStaging.h"

#include "LocalDaemon/CleanPath.h"
#include "Support/Logging.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

std::optional<struct stat> lookAt(const std::string& path, bool followsLink) {
    struct stat status {};
    const int result = followsLink ? ::stat(path.c_str(), &status) : ::lstat(path.c_str(), &status);
    return result == 0 ? std::optional(status) : std::nullopt;
}

bool isWritable(const std::string& folder) {
    return ::access(folder.c_str(), W_OK | X_OK) == 0;
}

bool removeItem(int around, const char* name, const StopSignal* stop);

// False with errno: something is left.
bool removeContents(DIR* folder, const StopSignal* stop) {
    int error = 0;
    while (const dirent* const entry = ::readdir(folder)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != ".." && !removeItem(::dirfd(folder), entry->d_name, stop))
            error = errno;
    }
    errno = error;
    return error == 0;
}

// By descriptors, so that nobody can put a link in the way. A folder that forbids it has its owner's
// permission back, since it is about to go.
bool removeItem(int around, const char* name, const StopSignal* stop) {
    if (stop && stop->isSet()) {
        errno = EINTR;
        return false;
    }
    if (::unlinkat(around, name, 0) == 0 || errno == ENOENT)
        return true;
    if (errno != EISDIR)
        return false;
    [[maybe_unused]] const int given = ::fchmodat(around, name, S_IRWXU, AT_SYMLINK_NOFOLLOW); // or no need
    const int descriptor = ::openat(around, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(descriptor < 0 ? nullptr : ::fdopendir(descriptor),
                                                     ::closedir);
    return folder && removeContents(folder.get(), stop) && ::unlinkat(around, name, AT_REMOVEDIR) == 0;
}

} // namespace

StagingPlace stagingPlaceFor(const std::string& target, bool isFolder) {
    const auto there = lookAt(target, false);
    if (isFolder && there && S_ISDIR(there->st_mode)) {
        if (isWritable(target))
            return {StagingPlace::Kind::Ready, target, {}};
        return {StagingPlace::Kind::Contents, {}, {}};
    }
    std::string around(folderOf(target));
    auto status = lookAt(around, true);
    while (!status && errno == ENOENT && around != "/") {
        around = folderOf(around);
        status = lookAt(around, true);
    }
    if (!status)
        return {StagingPlace::Kind::Nowhere, {}, around + ": " + std::generic_category().message(errno)};
    if (!S_ISDIR(status->st_mode))
        return {StagingPlace::Kind::Nowhere, {}, around + " is no folder"};
    if (!isWritable(around))
        return {StagingPlace::Kind::Nowhere, {}, "nothing can be written in " + around};
    return {StagingPlace::Kind::Ready, around, {}};
}

bool removeStaging(const std::string& folder, const StopSignal* stop) {
    std::error_code error;
    if (!std::filesystem::is_directory(folderOf(folder), error)) {
        KelvaneSystemLog("What is left of a restore cannot be reached: %@", folder);
        return false;
    }
    if (removeItem(AT_FDCWD, folder.c_str(), stop))
        return true;
    if (!stop || !stop->isSet())
        KelvaneSystemLog("What is left of a restore cannot be removed: %@: %@", folder,
                         std::generic_category().message(errno));
    return false;
}

std::uint64_t freeSpaceAt(const std::string& folder) {
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) != 0)
        return std::numeric_limits<std::uint64_t>::max(); // who knows: the disk will say
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

} // namespace kelvane
