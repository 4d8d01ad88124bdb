#include "LocalDaemon/Restore/Staging/RestoreMetadata.h"

#include "Foundation/Format.h"
#include "LocalDaemon/Restore/Staging/RestoreAccess.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"
#include "Platform/FileDescriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <endian.h>
#include <fcntl.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace kelvane {
namespace {

constexpr std::size_t largestAttribute = 65536; // The limit of the kernel.
constexpr unsigned groupShift = 3;              // Shifts the bits of others to those of the group.
constexpr unsigned ownerShift = 6;              // Shifts the bits of others to those of the owner.
constexpr const char* capability = "security.capability";
constexpr const char* accessAcl = "system.posix_acl_access";

std::vector<std::string> attributeNames(const std::string& path) {
    std::vector<char> text(largestAttribute);
    const ssize_t length = ::listxattr(path.c_str(), text.data(), text.size());
    std::vector<std::string> names;
    for (const char* name = text.data(); name < text.data() + length; name += std::strlen(name) + 1)
        names.emplace_back(name);
    return names;
}

std::string attribute(const std::string& path, const std::string& name) {
    std::string value(largestAttribute, '\0');
    const ssize_t size = ::getxattr(path.c_str(), name.c_str(), value.data(), value.size());
    value.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return value;
}

// Other attributes, such as a security label, belong to the location.
bool isOfTheBackup(const std::string& name) {
    return name.starts_with("user.") || name.starts_with("system.posix_acl_");
}

// Parses an ACL in the form of an extended attribute.
std::vector<posix_acl_xattr_entry> entriesOf(const std::string& acl) {
    std::vector<posix_acl_xattr_entry> entries;
    for (std::size_t at = sizeof(posix_acl_xattr_header); at + sizeof(posix_acl_xattr_entry) <= acl.size();
         at += sizeof(posix_acl_xattr_entry)) {
        posix_acl_xattr_entry entry{};
        std::memcpy(&entry, acl.data() + at, sizeof entry);
        entries.push_back(
            {.e_tag = le16toh(entry.e_tag), .e_perm = le16toh(entry.e_perm), .e_id = le32toh(entry.e_id)});
    }
    return entries;
}

// Returns the rights that every user and group in an ACL has, as the bits of one class of a mode.
mode_t commonRights(const std::string& acl) {
    mode_t common = S_IRWXO;
    for (const posix_acl_xattr_entry& entry : entriesOf(acl))
        if (entry.e_tag != ACL_USER_OBJ && entry.e_tag != ACL_OTHER)
            common &= entry.e_perm;
    return common;
}

// Calls `take` for each range of whole blocks of zeros.
template <class Take>
bool findZeros(int file, off_t block, Take take) {
    constexpr std::size_t step = std::size_t{1} << 20U;
    std::vector<char> bytes(step);
    off_t begin = -1;
    off_t at = 0;
    for (;;) {
        const ssize_t size = ::pread(file, bytes.data(), step, at);
        if (size <= 0) {
            if (begin >= 0 && begin < at)
                take(begin, at - begin);
            return size == 0;
        }
        for (off_t offset = 0; offset < size; offset += block) {
            const auto length = static_cast<std::size_t>(std::min<off_t>(block, size - offset));
            const char* const data = bytes.data() + offset;
            const bool isZero = data[0] == 0 && std::memcmp(data, data + 1, length - 1) == 0;
            if (isZero && begin < 0)
                begin = at + offset;
            if (!isZero && begin >= 0) {
                take(begin, at + offset - begin);
                begin = -1;
            }
        }
        at += size;
    }
}

// Returns empty, or why the time differs from the saved one. Some file systems store only even seconds.
std::string timeFault(const struct stat& now, FileTime saved) {
    constexpr std::int64_t step = 2;
    if (isAtEndOfKeptTimes(saved))
        return "restored with a different time: its own is outside the years that restic keeps";
    return std::abs(now.st_mtim.tv_sec - saved.seconds()) < step
               ? std::string()
               : "restored with a different time: the disk cannot store its own";
}

} // namespace

bool isAccessRule(const std::string& name) {
    return name.starts_with("system.posix_acl_");
}

std::string setAttributes(const std::string& path, const Attributes& attributes) {
    for (const bool areRules : {false, true})
        for (const auto& [name, value] : attributes)
            if (isAccessRule(name) == areRules &&
                ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) != 0 &&
                isOfTheBackup(name) && (areRules || errno != ENOTSUP))
                return "its attribute " + name + " cannot be set: " + errorText();
    return {};
}

std::string setSavedTime(int folder, const std::string& name, FileTime modified) {
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errorText();
    if (std::string fault = timeFault(status, modified); fault.empty() || isAtEndOfKeptTimes(modified))
        return fault;
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, modified.asTimespec()};
    if (::utimensat(folder, name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0 ||
        ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return "restored with a different time: " + errorText();
    return timeFault(status, modified);
}

SavedAccess withAcl(SavedAccess saved, const std::string& path) {
    for (const posix_acl_xattr_entry& entry : entriesOf(attribute(path, accessAcl)))
        if (entry.e_tag == ACL_GROUP_OBJ)
            saved.aclOfGroup = entry.e_perm;
    return saved;
}

mode_t modeFor(const SavedAccess& saved, const struct stat& now) {
    mode_t mode = saved.mode & modeBits & ~mode_t{S_IRWXG | S_IRWXO};
    mode_t group = (saved.mode & S_IRWXG) >> groupShift;
    mode_t others = saved.mode & S_IRWXO;
    const bool isOwners = now.st_uid == saved.user;
    const bool isGroups = now.st_gid == saved.group;
    if (!isOwners || !isGroups)
        mode &= ~mode_t{S_ISUID | S_ISGID};
    // A former owner or group member now counts as others.
    if (!isGroups)
        group = others &= group & saved.aclOfGroup;
    if (!isOwners) {
        group &= saved.mode >> ownerShift;
        others &= saved.mode >> ownerShift;
    }
    return mode | (group << groupShift) | others;
}

FolderMetadata::FolderMetadata(int folder, const SavedAccess& access, FileTime modified)
    : access_(withAcl(access, pathOfDescriptor(folder))), modified_(modified) {
    const std::string path = pathOfDescriptor(folder);
    // Whatever mode was saved, the attributes must be readable and the contents movable.
    if (::fstat(folder, &status_) != 0 || !makeOwnerAccessible(folder))
        failure_ = errorText();
    for (const std::string& name : attributeNames(path))
        attributes_.emplace(name, attribute(path, name));
}

std::string FolderMetadata::applyTo(int folder, Use use) const {
    if (!failure_.empty())
        return failure_;
    const std::string path = pathOfDescriptor(folder);
    // Only root may change the owner; otherwise the folder keeps its own.
    if (::chown(path.c_str(), access_.user, access_.group) != 0 && errno != EPERM)
        return "its owner cannot be set: " + errorText();
    if (!makeOwnerAccessible(folder)) // Setting attributes requires it.
        return "its mode cannot be set: " + errorText();
    if (std::string reason = replaceAttributes(path); !reason.empty())
        return reason;
    struct stat now {};
    const mode_t owners = use == Use::BeingFilled ? mode_t{S_IRWXU} : mode_t{0};
    const std::array<timespec, 2> times{status_.st_atim, modified_.asTimespec()};
    if (::fstat(folder, &now) != 0 || ::chmod(path.c_str(), modeFor(access_, now) | owners) != 0 ||
        ::utimensat(AT_FDCWD, path.c_str(), times.data(), 0) != 0)
        return "its mode or times cannot be set: " + errorText();
    return ::fstat(folder, &now) == 0 ? timeFault(now, modified_) : errorText();
}

std::string narrowFolder(int folder, SavedAccess saved, const Attributes& attributes) {
    if (const auto acl = attributes.find(accessAcl); acl != attributes.end()) {
        const mode_t common = commonRights(acl->second);
        saved.mode &= mode_t{S_IRWXU} | (common << groupShift) | common;
    }
    struct stat now {};
    if (::fstat(folder, &now) != 0)
        return errorText();
    const std::string path = pathOfDescriptor(folder);
    mode_t mode = modeFor(saved, now);
    // Users and groups named in the folder's own ACL get only the rights of others, since the group bits
    // are the ACL's mask.
    if (!entriesOf(attribute(path, accessAcl)).empty())
        mode &= ~mode_t{S_IRWXG} | ((mode & S_IRWXO) << groupShift);
    const mode_t left = now.st_mode & modeBits & (mode | ~mode_t{S_IRWXG | S_IRWXO});
    return left == (now.st_mode & modeBits) || ::chmod(path.c_str(), left) == 0
               ? ""
               : "its mode cannot be set: " + errorText();
}

std::string FolderMetadata::narrow(int folder) const {
    return narrowFolder(folder, access_, attributes_);
}

std::string FolderMetadata::replaceAttributes(const std::string& path) const {
    for (const std::string& name : attributeNames(path))
        if (isOfTheBackup(name) && !attributes_.contains(name) &&
            ::removexattr(path.c_str(), name.c_str()) != 0 && errno != ENODATA)
            return "its attribute " + name + " cannot be removed: " + errorText();
    return setAttributes(path, attributes_);
}

std::string digHoles(int folder, const std::string& name) {
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errorText();
    if (status.st_blocks * 512 < status.st_size)
        return {}; // The file is sparse already, perhaps through another of its names.
    const mode_t mode = status.st_mode & modeBits;
    if ((mode & (S_IRUSR | S_IWUSR)) != (S_IRUSR | S_IWUSR) &&
        ::fchmodat(folder, name.c_str(), mode | S_IRUSR | S_IWUSR, 0) != 0)
        return errorText();
    const FileDescriptor file(::openat(folder, name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        return errorText();
    const std::string path = pathOfDescriptor(file.get());
    const std::string saved = attribute(path, capability); // The first change of the file removes it.
    const bool isRead = findZeros(file.get(), status.st_blksize, [&](off_t begin, off_t length) {
        // On a file system without holes the zeros stay.
        static_cast<void>(::fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, begin, length));
    });
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    const bool isCapable =
        saved.empty() || ::fsetxattr(file.get(), capability, saved.data(), saved.size(), 0) == 0;
    if (!isRead || !isCapable || ::fchmod(file.get(), mode) != 0 || ::futimens(file.get(), times.data()) != 0)
        return "its holes cannot be restored: " + errorText();
    return {};
}

} // namespace kelvane
