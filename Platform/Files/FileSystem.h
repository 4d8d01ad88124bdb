#pragma once

#include "Foundation/Value.h"
#include "Platform/Files/MountTable.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvane {

struct FileAttributes {
    enum class Kind { File, Directory, SymbolicLink, Other };

    Kind kind = Kind::Other;
    std::uint64_t size = 0;
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    Date modified;
    Date accessed;
    Date statusChanged; // also set by a rename or a change of owner or mode
};

// Converts a Unix time to a date, rounded exactly as the dates in `FileAttributes` are, so that the two can
// be compared.
[[nodiscard]] Date dateFromTime(std::int64_t seconds, std::uint32_t nanoseconds = 0);

struct FolderListing {
    std::vector<std::string> names; // without "." and "..", in no order
    bool isComplete = false;        // no name is beyond the limit, and no error
    int error = 0;                  // a value of errno
};

// The file systems of this machine. A path may be real or start with a volume's name ("/Volumes/Disk/a"); a
// path in a volume that is not mounted does not exist.
//
// Callable on any thread. Everything blocks on the disk, and nothing is cached.
class FileSystem {
public:
    FileSystem() = default;
    virtual ~FileSystem() = default;
    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;

    // Never null.
    [[nodiscard]] virtual std::shared_ptr<const Volumes> volumes() const = 0;

    // Both follow a final symbolic link.
    [[nodiscard]] virtual bool exists(const std::string& path) const = 0;
    [[nodiscard]] virtual bool isDirectory(const std::string& path) const = 0;
    // Returns the attributes of the path without following a final link (lstat), or none if it does not
    // exist.
    [[nodiscard]] virtual std::optional<FileAttributes> attributes(const std::string& path) const = 0;
    // Whether this process may read the path; false when it does not exist.
    [[nodiscard]] virtual bool isReadable(const std::string& path) const = 0;
    // Returns at most `limit` names.
    [[nodiscard]] virtual FolderListing list(const std::string& path, std::size_t limit) const = 0;
    // The mount point of the path's file system, as in `Volumes`; none when the path does not exist.
    [[nodiscard]] virtual std::optional<std::string> mountPoint(const std::string& path) const = 0;
    // Everything that is mounted, including bind mounts. Never null. Does not access the mounts and triggers
    // no automount.
    [[nodiscard]] virtual std::shared_ptr<const MountPoints> mounts() const = 0;
    // Whether the path is on a remote file system that has not answered for that time.
    [[nodiscard]] virtual bool isSilent(const std::string& /*path*/,
                                        std::chrono::milliseconds /*silence*/) const {
        return false;
    }
    // See `fileSystemIdAt`.
    [[nodiscard]] virtual std::string fileSystemId(const std::string& mountPoint) const = 0;

    // The volume's name for the root of a volume ("/" included), otherwise the last component.
    [[nodiscard]] std::string displayName(const std::string& path) const;
};

// The disks of this machine.
class LocalFileSystem : public FileSystem {
public:
    // The form of paths passed in and names returned.
    enum class Names {
        Bytes,
        Text, // as from `textFromPath`, for display
    };
    // Reads the mounted volumes at each call.
    explicit LocalFileSystem(Names names = Names::Bytes) : names_(names) {}
    explicit LocalFileSystem(Volumes volumes, Names names = Names::Bytes)
        : names_(names), fixedVolumes_(std::make_shared<Volumes>(std::move(volumes))) {}

    [[nodiscard]] std::shared_ptr<const Volumes> volumes() const override;
    [[nodiscard]] bool exists(const std::string& path) const override;
    [[nodiscard]] bool isDirectory(const std::string& path) const override;
    [[nodiscard]] std::optional<FileAttributes> attributes(const std::string& path) const override;
    [[nodiscard]] bool isReadable(const std::string& path) const override;
    [[nodiscard]] FolderListing list(const std::string& path, std::size_t limit) const override;
    [[nodiscard]] std::optional<std::string> mountPoint(const std::string& path) const override;
    [[nodiscard]] std::shared_ptr<const MountPoints> mounts() const override;
    [[nodiscard]] bool isSilent(const std::string& path, std::chrono::milliseconds silence) const override;
    [[nodiscard]] std::string fileSystemId(const std::string& mountPoint) const override;

private:
    [[nodiscard]] std::optional<std::string> realPath(const std::string& path) const;

    const Names names_;
    std::shared_ptr<const Volumes> fixedVolumes_;
    mutable MountedVolumes mountedVolumes_;
};

} // namespace kelvane
