#include "LocalDaemon/Restore/Staging/RestoreStaging.h"

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "LocalDaemon/Restore/Staging/NameClashes.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace kelvane {
namespace {

constexpr mode_t ownersFolder = 0700;
constexpr int folderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool isWritable(const FileDescriptor& folder) {
    return ::faccessat(folder.get(), ".", W_OK | X_OK, AT_EACCESS) == 0;
}

bool isOwn(const FileDescriptor& folder) {
    struct stat status {};
    return ::fstat(folder.get(), &status) == 0 && status.st_uid == ::geteuid();
}

// Opens a path below `folder`, without a leading separator.
FileDescriptor descend(FileDescriptor folder, std::string_view path) {
    while (folder && !path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(name.size() + 1, path.size()));
        folder = openFolderIn(folder.get(), std::string(name));
    }
    return folder;
}

// Calls `take` with each name in the folder. Returns false with the last errno when the folder cannot be
// read or `take` returns false.
template <class Take>
bool forEachIn(int folder, Take take) {
    const int descriptor = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(descriptor < 0 ? nullptr : ::fdopendir(descriptor),
                                                      ::closedir);
    if (!listing)
        return false;
    int error = 0;
    while (const dirent* const entry = ::readdir(listing.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != ".." && !take(entry->d_name))
            error = errno;
    }
    errno = error;
    return error == 0;
}

bool isEmpty(int folder) {
    return forEachIn(folder, [](const char*) {
        errno = ENOTEMPTY;
        return false;
    });
}

// Moves contents into existing folders of the same name; a file that both have is the same.
bool moveContents(int from, int to) {
    for (const int folder : {from, to})
        if (::chmod(pathOfDescriptor(folder).c_str(), ownersFolder) != 0)
            return false;
    return forEachIn(from, [&](const char* name) {
        if (::renameat2(from, name, to, name, RENAME_NOREPLACE) == 0)
            return true;
        const FileDescriptor source = openFolderIn(from, name);
        const FileDescriptor target = openFolderIn(to, name);
        if (!source || !target)
            return ::renameat(from, name, to, name) == 0;
        return moveContents(source.get(), target.get()) && ::unlinkat(from, name, AT_REMOVEDIR) == 0;
    });
}

// Empties a folder. Nested folders are moved to the top before they are emptied, so that few descriptors
// are needed at any depth. A folder that denies access to its owner is made accessible first.
class Removal {
public:
    Removal(int top, const StopSignal* stop) : top_(top), stop_(stop) {}

    // Returns false with the first errno, or with EINTR when it was stopped.
    bool run() {
        empty(top_);
        while (!folders_.empty() && error_ != EINTR) {
            const std::string name = std::move(folders_.back());
            folders_.pop_back();
            if (const FileDescriptor folder = openToOwner(top_, name))
                empty(folder.get());
            // A folder is listed twice when it replaced an empty one of an interrupted attempt.
            note(::unlinkat(top_, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT);
        }
        errno = error_;
        return error_ == 0;
    }

private:
    static FileDescriptor openToOwner(int around, const std::string& name) {
        FileDescriptor folder = openFolderIn(around, name);
        if (folder)
            // A failure shows when the folder is emptied.
            static_cast<void>(::chmod(pathOfDescriptor(folder.get()).c_str(), ownersFolder));
        return folder;
    }
    void note(bool isDone) {
        if (!isDone && (error_ == 0 || errno == EINTR))
            error_ = errno;
    }
    void empty(int folder) {
        note(forEachIn(folder, [&](const char* name) { return take(folder, name); }));
    }
    bool take(int folder, const char* name) {
        if (stop_ && stop_->isSet()) {
            errno = EINTR;
            return false;
        }
        if (::unlinkat(folder, name, 0) == 0 || errno == ENOENT)
            return true;
        if (errno != EISDIR)
            return false;
        if (folder != top_)
            return moveOut(folder, name);
        folders_.emplace_back(name);
        return true;
    }
    bool moveOut(int folder, const char* name) {
        // Moving a folder changes its "..", which requires write access to it.
        static_cast<void>(openToOwner(folder, name));
        for (;;) {
            // Such a name is taken only after an interrupted attempt.
            const std::string free = "removed-" + std::to_string(++moved_);
            if (::renameat(folder, name, top_, free.c_str()) == 0) {
                folders_.push_back(free);
                return true;
            }
            if (errno != ENOTEMPTY && errno != EEXIST)
                return false;
        }
    }

    const int top_;
    const StopSignal* const stop_;
    std::vector<std::string> folders_; // Names in the top folder.
    std::size_t moved_ = 0;
    int error_ = 0;
};

bool removeContents(int folder, const StopSignal* stop) {
    return Removal(folder, stop).run();
}

// Returns whether ACLs can be set on a new staging folder, by trying one that changes nobody's access to it.
bool takesAccessRules(const std::string& folder) {
    const struct {
        std::uint32_t version = 2;
        struct {
            std::uint16_t tag, rights;
            std::uint32_t id;
        } entries[5] = {{1, 7, ~0U}, {2, 0, ::geteuid()}, {4, 0, ~0U}, {16, 0, ~0U}, {32, 0, ~0U}};
    } rules; // In the kernel's format.
    constexpr const char* name = "system.posix_acl_access";
    return ::setxattr(folder.c_str(), name, &rules, sizeof rules, 0) == 0 &&
           ::removexattr(folder.c_str(), name) == 0;
}

// Returns whether modes can be set, by trying one that hardly any mount option gives to all folders.
bool takesModes(const std::string& folder) {
    constexpr mode_t mode = S_IRWXU | S_IXGRP;
    struct stat status {};
    return ::chmod(folder.c_str(), mode) == 0 && ::stat(folder.c_str(), &status) == 0 &&
           (status.st_mode & ALLPERMS) == mode;
}

// Returns whether this is a staging folder that this user has created, rather than one with such a name.
bool isOurStaging(const FileDescriptor& folder, std::string_view name) {
    struct stat status {};
    const std::string_view number = name.substr(std::min(stagingPrefix.size(), name.size()));
    return name.starts_with(stagingPrefix) && !number.empty() &&
           number.find_first_not_of("0123456789abcdef-") == std::string_view::npos && folder &&
           ::fstat(folder.get(), &status) == 0 && status.st_uid == ::geteuid();
}

} // namespace

FileDescriptor openFolder(const std::string& absolutePath) {
    return descend(FileDescriptor(::open("/", folderFlags)), std::string_view(absolutePath).substr(1));
}

FileDescriptor openFolderIn(int folder, const std::string& name) {
    return FileDescriptor(::openat(folder, name.c_str(), folderFlags));
}

std::string pathOfDescriptor(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

std::string targetWithoutLinks(const std::string& target) {
    for (std::string around(folderOf(target)); target.size() > 1; around = folderOf(around)) {
        const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(around.c_str(), nullptr), ::free);
        if (resolved)
            return withSeparator(resolved.get()) + target.substr(withSeparator(around).size());
        if (around == "/")
            break;
    }
    return target;
}

std::set<std::string> pathsTo(const std::string& file) {
    std::set<std::string> found;
    for (std::vector<std::string> waiting{file}; !waiting.empty();) {
        const std::string path = std::move(waiting.back());
        waiting.pop_back();
        if (path.size() <= 1 || !found.insert(targetWithoutLinks(path)).second)
            continue;
        const std::string around(folderOf(path));
        if (const std::string target = linkTarget(AT_FDCWD, path); !target.empty())
            waiting.push_back(target.front() == '/' ? target : withSeparator(around) + target);
        waiting.push_back(around);
    }
    return found;
}

std::string linkTarget(int folder, const std::string& name) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlinkat(folder, name.c_str(), target.data(), target.size());
    return {target.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

StagingPlace stagingPlaceFor(const std::string& target, bool isFolder) {
    const FileDescriptor there = isFolder ? openFolder(target) : FileDescriptor();
    if (there && isWritable(there))
        return {StagingPlace::Kind::Ready, target, {}};
    std::string around(folderOf(target));
    FileDescriptor folder = openFolder(around);
    // The delivery makes a write-protected folder of this user accessible for a while; the staging folder is
    // then created further up.
    const auto mustLookFurther = [&] {
        return folder ? !isWritable(folder) && isOwn(folder) : errno == ENOENT;
    };
    while ((!there || isOwn(there)) && mustLookFurther() && around != "/") {
        around = folderOf(around);
        folder = openFolder(around);
    }
    if (folder && isWritable(folder) && (!there || isOwn(there)))
        return {StagingPlace::Kind::Ready, around, {}};
    if (there)
        return {StagingPlace::Kind::Contents, {}, {}};
    if (folder)
        return {StagingPlace::Kind::Nowhere, {}, "nothing can be written in " + around};
    return {StagingPlace::Kind::Nowhere,
            {},
            errno == ENOTDIR ? around + " is not a folder, or is reached through a link"
                             : around + ": " + errorText()};
}

std::string newStagingPath(const std::string& around, std::uint32_t job) {
    std::random_device random;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%u-%08x%08x", job, random(), random());
    return withSeparator(around).append(stagingPrefix) + text.data();
}

StagingFolder::StagingFolder(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const FileDescriptor around = openFolder(std::string(folderOf(path)));
    if (around && ::mkdirat(around.get(), name.c_str(), ownersFolder) == 0)
        folder_ = openFolderIn(around.get(), name);
    bool isMade = isOurStaging(folder_, name);
    if (isMade) {
        const std::string self = pathOfDescriptor(folder_.get());
        for (const char* inherited : {"system.posix_acl_default", "system.posix_acl_access"})
            static_cast<void>(::removexattr(self.c_str(), inherited)); // There may be none.
        keepsAccessRules_ = takesAccessRules(self);
        keepsModes_ = takesModes(self);
        tellsNamesApart_ = kelvane::tellsNamesApart(folder_.get());
        // An inherited ACL may deny access to the owner.
        isMade = ::chmod(self.c_str(), ownersFolder) == 0 && isEmpty(folder_.get());
        synced_ = FileDescriptor(::openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        isMade = isMade && synced_;
    }
    if (isMade)
        return;
    failure_ = path + " cannot be created: " + errorText();
    folder_.reset();
}

std::string StagingFolder::path() const {
    return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(folder_.get());
}

std::string StagingFolder::sync() const {
    return ::syncfs(synced_.get()) == 0 ? "" : "it was not written to the disk: " + errorText();
}

FileDescriptor StagingFolder::open(const std::string& relativePath) const {
    return descend(FileDescriptor(::fcntl(folder_.get(), F_DUPFD_CLOEXEC, 0)), relativePath);
}

bool StagingFolder::clear() const {
    return removeContents(folder_.get(), nullptr);
}

bool StagingFolder::merge(const std::string& from, const std::string& into) const {
    const FileDescriptor source = open(from);
    if (!source)
        return errno == ENOENT; // Nothing was restored.
    if (::renameat2(folder_.get(), from.c_str(), folder_.get(), into.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    const FileDescriptor target = open(into);
    if (!target && errno == ENOENT) // The file system does not support the flag.
        return ::renameat(folder_.get(), from.c_str(), folder_.get(), into.c_str()) == 0;
    return target && moveContents(source.get(), target.get()) &&
           ::unlinkat(folder_.get(), from.c_str(), AT_REMOVEDIR) == 0;
}

bool removeStaging(const std::string& path, const StopSignal* stop) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const FileDescriptor around =
        path.starts_with('/') ? openFolder(std::string(folderOf(path))) : FileDescriptor();
    if (!around && path.starts_with('/')) {
        logWarning("The staging folder %@ cannot be reached: %@", path, errorText());
        return false;
    }
    const FileDescriptor folder = openFolderIn(around.get(), name);
    if (!folder && errno == ENOENT)
        return true;
    if (!isOurStaging(folder, name)) {
        logNotice("Not removed: %@ is not a staging folder of this user.", path);
        return true;
    }
    // A failure shows when the folder is emptied.
    static_cast<void>(::chmod(pathOfDescriptor(folder.get()).c_str(), ownersFolder));
    if (removeContents(folder.get(), stop) && ::unlinkat(around.get(), name.c_str(), AT_REMOVEDIR) == 0)
        return true;
    if (!stop || !stop->isSet())
        logWarning("The staging folder %@ cannot be removed: %@", path, errorText());
    return false;
}

std::uint64_t freeSpaceAt(const std::string& folder) {
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) != 0)
        return std::numeric_limits<std::uint64_t>::max(); // Unknown: writing will fail if the disk is full.
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit)); // On failure the limit stays lower.
}

} // namespace kelvane
