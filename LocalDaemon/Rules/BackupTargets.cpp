#include "LocalDaemon/Rules/BackupTargets.h"

#include "Foundation/CleanPath.h"
#include "Platform/Files/MountTable.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <system_error>

namespace kelvane {
namespace {

namespace fs = std::filesystem;

// The device of a path, or the errno of the failed lstat.
struct Device {
    dev_t number = 0;
    int error = 0;
};

Device deviceOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? Device{status.st_dev} : Device{0, errno};
}

class Walk {
public:
    Walk(const MountedSelection& selection, const std::atomic<bool>& stopping)
        : selection_(selection), stopping_(stopping) {}

    // Adds the selected parts of a selected path.
    void take(const std::string& path) {
        if (isSilent(path))
            return;
        std::error_code error;
        const fs::file_status status = fs::symlink_status(path, error);
        if (status.type() == fs::file_type::not_found)
            return;
        std::vector<std::string> parts;
        if (!fs::is_directory(status) || isWhole(path, parts))
            targets_.paths.push_back(path);
        else
            std::ranges::move(parts, std::back_inserter(targets_.paths));
    }

    // A pattern that excludes the contents of a folder also excludes paths below it that are given as
    // arguments. A folder with a target below it is saved together with that target.
    BackupTargets targets() {
        std::set<std::string_view> asked(targets_.paths.begin(), targets_.paths.end());
        std::set<std::string, std::less<>> passed;
        std::erase_if(targets_.emptied, [&](const std::string& folder) {
            const auto next = asked.upper_bound(withSeparator(folder));
            const bool isPassed = next != asked.end() && next->starts_with(withSeparator(folder));
            return isPassed && passed.insert(folder).second;
        });
        std::erase_if(targets_.paths, [&](const std::string& path) { return passed.contains(path); });
        return std::move(targets_);
    }

private:
    // Returns false when part of the folder is not selected; `parts` then has the selected parts, or only
    // the folder itself when there are none. The recursion is limited by the length of a path.
    bool isWhole(const std::string& folder, std::vector<std::string>& parts) {
        if (isSilent(folder))
            return false;
        const Device device = deviceOf(folder);
        if (device.error != 0) {
            noteUnread(folder, device.error);
            return isGone(device.error); // restic finds nothing there either.
        }
        bool isWhole = true;
        std::error_code error;
        for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator() && !stopping_;
             at.increment(error))
            isWhole = takeEntry(*at, device.number, parts) && isWhole;
        if (error) {
            noteUnread(folder, error.value());
            // What this process may not read, restic may not read either.
            isWhole = isWhole && error == std::errc::permission_denied;
        } else if (!isWhole && parts.empty()) {
            parts.push_back(folder);
            targets_.emptied.push_back(folder);
        }
        return isWhole;
    }

    // Returns false when part of the entry is not selected.
    bool takeEntry(const fs::directory_entry& entry, dev_t device, std::vector<std::string>& parts) {
        const std::string& path = entry.path().native();
        const auto rule = selection_.ruleAt(path);
        const bool isMount = rule && rule->reason == Verdict::Reason::OtherFileSystem;
        // A mount point above a selected path is not among the mounts: excluding it would exclude that
        // path as well.
        if (isMount && !selection_.isSelectedBelow(path)) {
            targets_.mounts.push_back(path);
            return true;
        }
        if (rule && !rule->isIn())
            return false;
        if (rule && isSilent(path))
            return false;
        std::error_code unknown;
        const bool isFolder = fs::is_directory(entry.symlink_status(unknown));
        // An item with a rule of its own may be on another file system, which restic saves only when it
        // is a target; the same is true of a subvolume. Otherwise another file system is excluded.
        bool isNamed = rule.has_value();
        if (!rule) {
            const Device own = deviceOf(path);
            if (own.error != 0)
                noteUnread(path, own.error);
            isNamed =
                own.error == 0 && own.number != device && isFolder && !isMountRoot(AT_FDCWD, path.c_str());
            if (own.error != 0 || (own.number != device && !isNamed))
                return true;
        }
        std::vector<std::string> below;
        if (!isFolder || isWhole(path, below)) {
            parts.push_back(path);
            return !isNamed;
        }
        std::ranges::move(below, std::back_inserter(parts));
        return false;
    }

    // Neither a system call on it nor a restic that reads it could be interrupted.
    bool isSilent(const std::string& path) {
        const bool isSilent = !silentMountAround(path).empty();
        if (isSilent)
            targets_.unread.push_back(path);
        return isSilent;
    }
    static bool isGone(int error) { return error == ENOENT || error == ENOTDIR; }
    void noteUnread(const std::string& path, int error) {
        if (!isGone(error))
            targets_.unread.push_back(path);
    }

    const MountedSelection& selection_;
    const std::atomic<bool>& stopping_;
    BackupTargets targets_;
};

} // namespace

BackupTargets backupTargets(const MountedSelection& selection, const std::string& path,
                            const std::atomic<bool>& stopping) {
    Walk walk(selection, stopping);
    if (selection.verdictFor(path).isIn())
        walk.take(path);
    for (const std::string& beginning : selection.beginnings())
        if (beginning != path && beginning.starts_with(withSeparator(path)))
            walk.take(beginning);
    return walk.targets();
}

} // namespace kelvane
