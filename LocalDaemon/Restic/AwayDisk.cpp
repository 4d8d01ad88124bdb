#include "LocalDaemon/Restic/AwayDisk.h"

#include "Foundation/CleanPath.h"
#include "Foundation/PathComponents.h"
#include "Platform/FileContents.h"
#include "Platform/SymbolicLinks.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>
#include <vector>

namespace kelvane {
namespace {

constexpr const char* mountTablePath = "/etc/fstab";
constexpr std::size_t largestTable = std::size_t{1} << 20U;

// Folders below which mount points for disks are created, with the depths of these mount points.
struct DiskFolder {
    std::string_view path;
    std::size_t least, most; // Levels from the folder down to a disk's mount point.
};
constexpr DiskFolder diskFolders[] = {{"/mnt/", 1, 1}, {"/media/", 1, 2}, {"/run/media/", 2, 2}};

bool isAtOrBelow(const std::string& path, const std::string& folder) {
    return path == folder || path.starts_with(withSeparator(folder));
}

// Decodes the octal escapes of fstab and mountinfo: "\040" is a space.
std::string unescaped(std::string_view text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::string_view digits = text.substr(at + 1, 3);
        if (text[at] == '\\' && digits.size() == 3 &&
            digits.find_first_not_of("01234567") == std::string_view::npos) {
            plain += static_cast<char>((digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0'));
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return plain;
}

std::vector<std::string> mountPointsIn(std::string_view fstab) {
    std::vector<std::string> points;
    std::istringstream lines{std::string(fstab)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string device;
        std::string point;
        if (fields >> device >> point && !device.starts_with('#') && point.starts_with('/') && point != "/")
            points.push_back(unescaped(point));
    }
    return points;
}

// Returns the topmost folder first.
std::vector<std::string> diskFoldersAbove(const std::string& folder) {
    std::vector<std::string> found;
    for (const auto& [path, least, most] : diskFolders) {
        if (!folder.starts_with(path))
            continue;
        std::size_t end = path.size() - 1;
        for (std::size_t depth = 1; depth <= most && end != std::string::npos && end < folder.size();
             ++depth) {
            end = folder.find('/', end + 1);
            if (depth >= least)
                found.push_back(folder.substr(0, end));
        }
    }
    return found;
}

bool isMountRoot(const std::string& path) {
    struct statx status {};
    return ::statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

} // namespace

std::string awayMountPointOf(const std::string& folder, std::string_view fstab,
                             const std::function<bool(const std::string&)>& isMountPoint) {
    for (const std::string& point : mountPointsIn(fstab))
        if (isAtOrBelow(folder, point) && !isMountPoint(point))
            return point;
    std::string_view above = folder;
    for (; above.size() > 1; above = folderOf(above))
        if (isMountPoint(std::string(above)))
            return {};
    const std::vector<std::string> disks = diskFoldersAbove(folder);
    return disks.empty() ? std::string() : disks.back();
}

std::string awayMountPointOf(const std::string& folder) {
    const FileReading table = readFile(mountTablePath, largestTable, SymbolicLinks::Follow);
    return awayMountPointOf(withoutLinks(folder),
                            {reinterpret_cast<const char*>(table.bytes.data()), table.bytes.size()},
                            isMountRoot);
}

} // namespace kelvane
