#include "LocalDaemon/LateChanges.h"

#include "Platform/FileDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace kelvane {
namespace {

constexpr std::int64_t coarseTick =
    2; // seconds: FAT's, and twice that of file systems that keep whole seconds

bool isLate(const BackupIndex::Item& item, FileTime begin) {
    const bool isCoarse = item.changed.nanoseconds() == 0;
    return item.kind == ItemKind::File &&
           (isCoarse ? item.changed.seconds() + coarseTick >= begin.seconds() : item.changed >= begin);
}

bool touch(const std::string& path, const BackupIndex::Item& item) {
    // Not for reading: a pipe that has taken its place would let its writers go on.
    const FileDescriptor file(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const bool isAsSaved = static_cast<std::uint64_t>(status.st_size) == item.size &&
                           FileTime(status.st_mtim) == item.modified &&
                           FileTime(status.st_ctim) == item.changed;
    const bool mayLoseBits = (status.st_mode & (S_ISUID | S_ISGID)) != 0; // by being set again
    const std::string handle = "/proc/self/fd/" + std::to_string(file.get());
    return isAsSaved && !mayLoseBits && ::chmod(handle.c_str(), status.st_mode & ALLPERMS) == 0;
}

} // namespace

std::size_t touchLateChanges(const BackupIndex& index, FileTime begin) {
    std::size_t touched = 0;
    index.forEach([&](const BackupIndex::Item& item) {
        if (isLate(item, begin))
            touched += touch(index.pathOf(item), item) ? 1U : 0U;
    });
    return touched;
}

} // namespace kelvane
