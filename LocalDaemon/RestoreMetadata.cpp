#include "LocalDaemon/RestoreMetadata.h"

#include "Platform/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kelvane {
namespace {

constexpr mode_t allBits = 07777;
constexpr std::size_t largestAttribute = 65536; // as large as the system allows

// What a file system does not know is left out, as is what only root may set.
void copyAttributes(int from, int to) {
    std::vector<char> names(largestAttribute);
    std::vector<char> value(largestAttribute);
    const ssize_t length = ::flistxattr(from, names.data(), names.size());
    for (const char* name = names.data(); name < names.data() + length; name += std::strlen(name) + 1) {
        const ssize_t size = ::fgetxattr(from, name, value.data(), value.size());
        if (size >= 0)
            static_cast<void>(::fsetxattr(to, name, value.data(), static_cast<std::size_t>(size), 0));
    }
}

FileDescriptor openFolder(const std::string& path) {
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

} // namespace

FolderMetadata::FolderMetadata(const std::string& folder)
    : folder_(folder), isThere_(::lstat(folder.c_str(), &status_) == 0) {}

void FolderMetadata::openStaged() const {
    if (isThere_ && S_ISDIR(status_.st_mode))
        static_cast<void>(
            ::chmod(folder_.c_str(), (status_.st_mode & allBits) | S_IRWXU)); // else moving fails
}

std::string FolderMetadata::applyTo(const std::string& folder) const {
    if (!isThere_)
        return "it has not come out of the backup";
    // Root may; what others make stays theirs.
    if (::lchown(folder.c_str(), status_.st_uid, status_.st_gid) != 0 && errno != EPERM)
        return "its owner cannot be set: " + std::generic_category().message(errno);
    // The source may forbid its owner to read it.
    static_cast<void>(::chmod(folder_.c_str(), status_.st_mode | S_IRUSR));
    if (const FileDescriptor source = openFolder(folder_), place = openFolder(folder); source && place)
        copyAttributes(source.get(), place.get());
    const std::array<timespec, 2> times{status_.st_atim, status_.st_mtim};
    if (::chmod(folder.c_str(), status_.st_mode & allBits) != 0 ||
        ::utimensat(AT_FDCWD, folder.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0)
        return "its mode or times cannot be set: " + std::generic_category().message(errno);
    return {};
}

} // namespace kelvane
