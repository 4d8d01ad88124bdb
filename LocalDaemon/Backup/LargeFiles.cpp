#include "LocalDaemon/Backup/LargeFiles.h"

#include "LocalDaemon/Index/LeftOut.h"
#include "LocalDaemon/Rules/BackupTargets.h"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace kelvane {
namespace {

namespace fs = std::filesystem;

bool isPending(const BackupIndex& index, const std::string& path, const struct stat& status) {
    const BackupIndex::Item* const item = index.find(path);
    return !item || isLeftOut(index, path) ||
           !isUnchanged(*item, ItemKind::File, static_cast<std::uint64_t>(status.st_size),
                        FileTime(status.st_mtim), FileTime(status.st_ctim));
}

} // namespace

std::vector<std::string> pendingLargeFiles(const MountedSelection& selection, const BackupIndex& index,
                                           std::uint64_t size, const std::atomic<bool>& stopping) {
    std::vector<std::string> found;
    struct stat status {};
    const auto take = [&](const std::string& path) {
        if (::lstat(path.c_str(), &status) != 0)
            status = {};
        if (S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) >= size &&
            isPending(index, path, status))
            found.push_back(path);
    };
    const BackupTargets targets = backupTargets(selection, "/", stopping);
    for (const std::string& target : targets.paths) {
        take(target);
        if (!S_ISDIR(status.st_mode))
            continue;
        const dev_t device = status.st_dev;
        std::error_code error;
        fs::recursive_directory_iterator at(target, fs::directory_options::skip_permission_denied, error);
        for (; !error && at != fs::recursive_directory_iterator() && !stopping; at.increment(error)) {
            const std::string& path = at->path().native();
            const bool isMount = std::ranges::find(targets.mounts, path) != targets.mounts.end();
            if (!isMount)
                take(path);
            if (isMount || status.st_dev != device)
                at.disable_recursion_pending(); // Another file system, which restic skips.
        }
    }
    return found;
}

} // namespace kelvane
