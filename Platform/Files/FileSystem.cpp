#include "Platform/Files/FileSystem.h"

#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

Date dateOf(const timespec& time) {
    return {static_cast<double>(time.tv_sec) - Date::referenceTime + static_cast<double>(time.tv_nsec) / 1e9};
}

FileAttributes::Kind kindOf(mode_t mode) {
    if (S_ISREG(mode))
        return FileAttributes::Kind::File;
    if (S_ISDIR(mode))
        return FileAttributes::Kind::Directory;
    return S_ISLNK(mode) ? FileAttributes::Kind::SymbolicLink : FileAttributes::Kind::Other;
}

std::optional<struct stat> statusOf(const std::optional<std::string>& path, int flags) {
    struct stat status {};
    if (!path || ::fstatat(AT_FDCWD, path->c_str(), &status, flags) != 0)
        return std::nullopt;
    return status;
}

class FolderReader {
public:
    // `error` is set when the folder cannot be read.
    explicit FolderReader(const std::string& path) {
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (descriptor >= 0)
            stream_ = ::fdopendir(descriptor);
        error_ = stream_ ? 0 : errno;
        if (!stream_ && descriptor >= 0)
            ::close(descriptor);
    }
    ~FolderReader() {
        if (stream_)
            ::closedir(stream_);
    }
    FolderReader(const FolderReader&) = delete;
    FolderReader& operator=(const FolderReader&) = delete;

    [[nodiscard]] int error() const { return error_; }

    // None at the end and after an error.
    [[nodiscard]] std::optional<std::string> next() {
        while (stream_ && error_ == 0) {
            errno = 0;
            const dirent* entry = ::readdir(stream_);
            if (!entry) {
                error_ = errno;
                break;
            }
            std::string name = entry->d_name;
            if (name != "." && name != "..")
                return name;
        }
        return std::nullopt;
    }

private:
    DIR* stream_ = nullptr;
    int error_ = 0;
};

} // namespace

Date dateFromTime(std::int64_t seconds, std::uint32_t nanoseconds) {
    return dateOf({seconds, nanoseconds});
}

std::string FileSystem::displayName(const std::string& path) const {
    const std::shared_ptr<const Volumes> known = volumes();
    if (const std::optional<std::string> real = known->realPath(path)) {
        const auto volume = std::ranges::find(known->all(), *real, &Volume::mountPoint);
        if (volume != known->all().end())
            return volume->name;
    }
    return lastPathComponent(path);
}

std::shared_ptr<const Volumes> LocalFileSystem::volumes() const {
    return fixedVolumes_ ? fixedVolumes_ : mountedVolumes_.current();
}

std::optional<std::string> LocalFileSystem::realPath(const std::string& path) const {
    return volumes()->realPath(names_ == Names::Text ? pathFromText(path) : path);
}

bool LocalFileSystem::exists(const std::string& path) const {
    return statusOf(realPath(path), 0).has_value();
}

bool LocalFileSystem::isDirectory(const std::string& path) const {
    const std::optional<struct stat> status = statusOf(realPath(path), 0);
    return status && S_ISDIR(status->st_mode);
}

std::optional<FileAttributes> LocalFileSystem::attributes(const std::string& path) const {
    const std::optional<struct stat> status = statusOf(realPath(path), AT_SYMLINK_NOFOLLOW);
    if (!status)
        return std::nullopt;
    return FileAttributes{.kind = kindOf(status->st_mode),
                          .size = static_cast<std::uint64_t>(status->st_size),
                          .uid = status->st_uid,
                          .gid = status->st_gid,
                          .modified = dateOf(status->st_mtim),
                          .accessed = dateOf(status->st_atim),
                          .statusChanged = dateOf(status->st_ctim)};
}

bool LocalFileSystem::isReadable(const std::string& path) const {
    const std::optional<std::string> real = realPath(path);
    return real && ::faccessat(AT_FDCWD, real->c_str(), R_OK, AT_EACCESS) == 0;
}

FolderListing LocalFileSystem::list(const std::string& path, std::size_t limit) const {
    FolderListing listing;
    const std::optional<std::string> real = realPath(path);
    if (!real) {
        listing.error = ENOENT;
        return listing;
    }
    FolderReader reader(*real);
    std::optional<std::string> name = reader.next();
    for (std::size_t count = 0; name && count < limit; ++count, name = reader.next())
        listing.names.push_back(names_ == Names::Text ? textFromPath(*name) : std::move(*name));
    listing.error = reader.error();
    listing.isComplete = !name && listing.error == 0;
    return listing;
}

std::optional<std::string> LocalFileSystem::mountPoint(const std::string& path) const {
    const std::shared_ptr<const Volumes> known = volumes();
    return statusOf(realPath(path), 0) ? known->mountPointOf(path) : std::nullopt;
}

std::shared_ptr<const MountPoints> LocalFileSystem::mounts() const {
    return currentMountPoints();
}

bool LocalFileSystem::isSilent(const std::string& path, std::chrono::milliseconds silence) const {
    const std::optional<std::string> real = realPath(path);
    return real && !silentMountAround(*real, silence).empty();
}

std::string LocalFileSystem::fileSystemId(const std::string& mountPoint) const {
    return fileSystemIdAt(mountPoint);
}

} // namespace kelvane
