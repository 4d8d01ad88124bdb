#include "LocalDaemon/Index/LateChanges.h"

#include "Foundation/CleanPath.h"
#include "Platform/FileDescriptor.h"

#include <array>
#include <ctime>
#include <fcntl.h>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <unordered_set>

namespace kelvane {
namespace {

// In seconds: the clock tick of FAT, and twice that of file systems with whole seconds.
constexpr std::int64_t coarseTick = 2;

// A time in the future does not mean a change since then: the clock was set.
bool isLate(const SnapshotItem& item, FileTime begin, FileTime end) {
    const bool isCoarse = item.changed.nanoseconds() == 0;
    return item.changed.seconds() <= end.seconds() + coarseTick &&
           (isCoarse ? item.changed.seconds() + coarseTick >= begin.seconds() : item.changed >= begin);
}

FileTime currentTime() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return FileTime(now);
}

// Returns whether a file or link is unchanged since it was saved. restic does not report the size of a
// link.
bool isAsSaved(const struct stat& status, ItemKind kind, std::uint64_t size, FileTime modified,
               FileTime changed) {
    const bool isSameKind = kind == ItemKind::Link ? S_ISLNK(status.st_mode)
                                                   : S_ISREG(status.st_mode) &&
                                                         static_cast<std::uint64_t>(status.st_size) == size;
    return isSameKind && FileTime(status.st_mtim) == modified && FileTime(status.st_ctim) == changed;
}

// Updates the inode change time (ctime) of the file or link by setting its access time to the same value;
// setting the mode could undo a concurrent change. Returns false when the item still looks as it was
// saved.
bool touch(const SnapshotItem& item) {
    // Not opened for reading, since that would unblock the writers of a pipe that has replaced the file.
    const FileDescriptor file(::open(item.path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    const auto isStillAsSaved = [&] {
        return file && ::fstat(file.get(), &status) == 0 &&
               isAsSaved(status, item.kind, item.size, item.modified, item.changed);
    };
    if (!isStillAsSaved())
        return true;
    const std::string handle = "/proc/self/fd/" + std::to_string(file.get());
    const std::array<timespec, 2> times{status.st_atim, timespec{0, UTIME_OMIT}};
    ::utimensat(AT_FDCWD, handle.c_str(), times.data(), 0);
    return !isStillAsSaved();
}

} // namespace

std::size_t takeLateChanges(std::vector<SnapshotItem>& items, const BackupIndex& before, FileTime begin,
                            const std::vector<std::string>& readAgain) {
    std::set<std::string> uncertain;
    before.forEach([&](const BackupIndex::Item& item) {
        if (isUncertain(item.changed))
            uncertain.insert(before.pathOf(item));
    });
    for (const std::string& path : readAgain)
        uncertain.erase(path);
    const FileTime now = currentTime();
    std::size_t late = 0;
    for (SnapshotItem& item : items) {
        if (item.kind == ItemKind::Folder)
            continue;
        const bool isLateNow = isLate(item, begin, now);
        late += isLateNow ? 1U : 0U;
        // restic reads the target of a link for each snapshot.
        const bool isSameAsBefore = item.kind == ItemKind::File && uncertain.contains(item.path) &&
                                    before.find(item.path)->changed == asUncertain(item.changed);
        if ((isLateNow && !touch(item)) || isSameAsBefore)
            item.changed = asUncertain(item.changed);
    }
    return late;
}

std::vector<std::string> goneLate(const std::vector<SnapshotItem>& items, const BackupIndex& before,
                                  FileTime begin) {
    const FileTime now = currentTime();
    std::unordered_set<std::string_view> folders; // Folders that changed late.
    for (const SnapshotItem& item : items)
        if (item.kind == ItemKind::Folder && isLate(item, begin, now))
            folders.insert(item.path);
    std::unordered_set<std::string_view> present; // The items in these folders.
    for (const SnapshotItem& item : items)
        if (folders.contains(folderOf(item.path)))
            present.insert(item.path);
    std::vector<std::string> gone;
    for (const std::string_view folder : folders) {
        const BackupIndex::Item* const saved = before.find(folder);
        if (!saved || saved->snapshot == 0)
            continue;
        for (const BackupIndex::Item& child : before.children(*saved))
            if (std::string path = before.pathOf(child);
                child.snapshot >= saved->snapshot && !present.contains(path))
                gone.push_back(std::move(path));
    }
    return gone;
}

std::vector<std::string> uncertainFiles(const BackupIndex& index) {
    std::vector<std::string> paths;
    index.forEach([&](const BackupIndex::Item& item) {
        if (item.kind != ItemKind::File || !isUncertain(item.changed))
            return;
        std::string path = index.pathOf(item);
        struct stat status {};
        if (::lstat(path.c_str(), &status) == 0 &&
            isAsSaved(status, item.kind, item.size, item.modified, asCertain(item.changed)))
            paths.push_back(std::move(path));
    });
    return paths;
}

} // namespace kelvane
