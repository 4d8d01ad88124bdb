#include "LocalDaemon/RestoreStaging.h"

#include "LocalDaemon/CleanPath.h"
#include "Support/Logging.h"

#include <cerrno>
#include <filesystem>
#include <limits>
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

// A folder that forbids it has its owner's permission back, since it is about to go.
void openUp(const std::filesystem::path& folder) {
    std::error_code ignored;
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
    std::filesystem::directory_iterator entry(folder, ignored);
    for (; !ignored && entry != std::filesystem::directory_iterator(); entry.increment(ignored))
        if (std::error_code unknown;
            entry->symlink_status(unknown).type() == std::filesystem::file_type::directory)
            openUp(entry->path());
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

bool removeStaging(const std::string& folder) {
    std::error_code error;
    if (!std::filesystem::is_directory(folderOf(folder), error)) {
        KelvaneSystemLog("What is left of a restore cannot be reached: %@", folder);
        return false;
    }
    if (std::filesystem::remove_all(folder, error); !error)
        return true;
    openUp(folder);
    std::filesystem::remove_all(folder, error);
    if (error)
        KelvaneSystemLog("What is left of a restore cannot be removed: %@: %@", folder, error.message());
    return !error;
}

std::uint64_t freeSpaceAt(const std::string& folder) {
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) != 0)
        return std::numeric_limits<std::uint64_t>::max(); // who knows: the disk will say
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

} // namespace kelvane
