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

std::string copyFolderMetadata(const std::string& from, const std::string& to) {
    struct stat status {};
    if (::lstat(from.c_str(), &status) != 0)
        return "it has not come out of the backup";
    static_cast<void>(::lchown(to.c_str(), status.st_uid, status.st_gid)); // root may, others keep theirs
    // Read from a folder that may forbid it to its owner as well.
    static_cast<void>(::chmod(from.c_str(), status.st_mode | S_IRUSR));
    if (const FileDescriptor source = openFolder(from), place = openFolder(to); source && place)
        copyAttributes(source.get(), place.get());
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    if (::chmod(to.c_str(), status.st_mode & allBits) != 0 ||
        ::utimensat(AT_FDCWD, to.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0)
        return "its mode or times cannot be set: " + std::generic_category().message(errno);
    return {};
}

} // namespace kelvane
