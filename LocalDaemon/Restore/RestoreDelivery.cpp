#include "LocalDaemon/Restore/RestoreDelivery.h"

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "LocalDaemon/Restore/Staging/NameClashes.h"
#include "LocalDaemon/Restore/Staging/RestoreAccess.h"
#include "Platform/FileContents.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr mode_t ownersFolder = 0700;    // The mode of a new parent folder without saved metadata.
constexpr const char* newFolder = "new"; // In the staging folder, where snapshots have numbers as names.
constexpr std::uint64_t smallestWithHoles = std::uint64_t{64} << 10U;
constexpr const char* missing = "restic did not restore it";

std::string reasonText() {
    return errno == EXDEV ? "its folder is not on the disk of the other items; restore it separately"
                          : errorText();
}

SavedAccess accessOf(const BackupIndex::Item& item, const std::string& lostRules) {
    return {.user = item.uid,
            .group = item.gid,
            .mode = lostRules.empty() ? item.mode : item.mode & mode_t{S_IRWXU}};
}

// Moves a folder without replacing anything that exists.
bool moveNew(int from, const char* name, int to, const std::string& newName) {
    if (::renameat2(from, name, to, newName.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    // The file system does not support RENAME_NOREPLACE; at most an empty folder is replaced.
    return errno == EINVAL && ::renameat(from, name, to, newName.c_str()) == 0;
}

// Returns the path in the backup of `folder`, a parent folder of the target. Returns empty when the target is
// not the original location: the saved access to a folder of the same name means nothing elsewhere.
std::string savedFolder(const std::string& path, const std::string& target, const std::string& folder) {
    if (target != path && target != targetWithoutLinks(path))
        return {};
    const std::size_t rest = target.size() - (folder == "/" ? 0 : folder.size());
    return path.size() > rest ? path.substr(0, path.size() - rest) : std::string();
}

} // namespace

RestoreDelivery::RestoreDelivery(const BackupIndex& index, const StagingFolder& staging,
                                 const FileErrors& errors, RestoreJournal& journal, SavedNodes& nodes,
                                 std::string keyFile, const StopSignal& stop)
    : index_(index),
      staging_(staging),
      errors_(errors),
      journal_(journal),
      nodes_(nodes),
      keyFile_(std::move(keyFile)),
      keyPaths_(pathsTo(keyFile_)),
      stop_(stop),
      hardLinks_(index, nodes) {
    for (const auto& [path, reason] : errors_.items) {
        const BackupIndex::Item* const item = index_.find(path);
        const FileDescriptor around =
            item ? stagedFolder(item->snapshot, std::string(folderOf(path))) : FileDescriptor();
        struct stat status {};
        if (around &&
            ::fstatat(around.get(), lastPathComponent(path).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
            errorsOfInodes_.emplace(status.st_ino, reason);
    }
}

bool RestoreDelivery::isPlaceOfOthers(const Place& place) const {
    return !staging_.tellsNamesApart() &&
           ::faccessat(place.around, place.name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0 &&
           !hasEntry(place.around, place.name);
}

void RestoreDelivery::deliver(const RestorePiece& piece) {
    if (stop_.isSet())
        return;
    const std::string path = index_.pathOf(*piece.item);
    std::string reason;
    const FileDescriptor around = folderAround(piece, path, reason);
    if (!around)
        return fail(path, reason);
    const AccessForOwner access(around.get(), std::string(folderOf(piece.target)), journal_);
    const FileDescriptor staged = stagedFolder(piece.item->snapshot, std::string(folderOf(path)));
    const std::string name = piece.target.substr(piece.target.rfind('/') + 1);
    shared_.clear();
    if (const FileDescriptor there = openFolderIn(around.get(), name.empty() ? "." : name);
        there && piece.target != path && piece.item->kind == ItemKind::Folder)
        findShared(*piece.item, there.get());
    if (piece.hasFailures)
        shared_.insert(piece.item);
    deliver({.item = *piece.item,
             .path = path,
             .target = piece.target,
             .staged = staged.get(),
             .around = around.get(),
             .name = name.empty() ? "." : name},
            piece.isFolderAlone);
}

void RestoreDelivery::deliver(const Place& place, bool isFolderAlone) {
    if (clashing_.contains(place.path) || isPlaceOfOthers(place))
        return fail(place.path, "another file has the same name on this disk, which ignores case or accents");
    if (place.item.kind == ItemKind::Folder)
        deliverFolder(place, isFolderAlone);
    else
        deliverFile(place);
}

FileDescriptor RestoreDelivery::stagedFolder(std::uint32_t snapshot, const std::string& path) const {
    return staging_.open(path == "/" ? std::to_string(snapshot) : std::to_string(snapshot) + path);
}

FileDescriptor RestoreDelivery::folderAround(const RestorePiece& piece, const std::string& path,
                                             std::string& reason) {
    const std::string around(folderOf(piece.target));
    FileDescriptor folder = openFolder("/");
    for (std::size_t end = 0; folder && end < around.size() && around != "/";) {
        const std::size_t begin = end + 1;
        end = std::min(around.find('/', begin), around.size());
        const std::string target = around.substr(0, end);
        FileDescriptor next = openFolderIn(folder.get(), around.substr(begin, end - begin));
        if (!next && errno == ENOENT)
            next = madeParent(piece, path, folder.get(), target);
        if (!next)
            reason = errno == ENOTDIR ? "there is a file or link instead of a folder at " + target
                                      : target + ": " + reasonText();
        folder = std::move(next);
    }
    return folder;
}

FileDescriptor RestoreDelivery::madeParent(const RestorePiece& piece, const std::string& path, int around,
                                           const std::string& target) {
    const std::string name = target.substr(target.rfind('/') + 1);
    const std::string saved = savedFolder(path, piece.target, target);
    const BackupIndex::Item* const item = saved.empty() ? nullptr : index_.find(saved);
    std::string reason;
    if (const FileDescriptor staged = stagedFolder(piece.item->snapshot, saved); item && staged) {
        if (reason = lostAccessRules(piece.item->snapshot, saved); !reason.empty())
            fail(saved, reason);
        made_.push_back({target, FolderMetadata(staged.get(), accessOf(*item, reason), item->modified)});
        return makeFolder(around, name, &made_.back().metadata, reason);
    }
    return makeFolder(around, name, nullptr, reason);
}

// Creates a folder in the staging folder and moves it to its target with its metadata: nobody else sees it
// without, and it inherits nothing from its parent. An existing folder is opened.
FileDescriptor RestoreDelivery::makeFolder(int around, const std::string& name,
                                           const FolderMetadata* metadata, std::string& reason) {
    if (::mkdirat(staging_.descriptor(), newFolder, ownersFolder) != 0 && errno != EEXIST)
        return {};
    FileDescriptor folder = openFolderIn(staging_.descriptor(), newFolder);
    if (folder && metadata)
        reason = metadata->applyTo(folder.get(), FolderMetadata::Use::BeingFilled);
    if (folder && moveNew(staging_.descriptor(), newFolder, around, name))
        return folder;
    const int error = errno;
    ::unlinkat(staging_.descriptor(), newFolder, AT_REMOVEDIR); // Its metadata is wrong for the next one.
    errno = error;
    return error == EEXIST ? openFolderIn(around, name) : FileDescriptor();
}

void RestoreDelivery::deliverFile(const Place& place) {
    std::string reason = faultOf(place);
    const std::string lost = reason.empty() && place.item.kind == ItemKind::File
                                 ? lostAccessRules(place.item.snapshot, place.path)
                                 : std::string();
    if (reason.empty())
        reason = prepare(place, accessOf(place.item, lost));
    struct stat there {};
    if (reason.empty() && replacesTheKey(place))
        reason = "it would replace the key of the repository in use; restore it to another place";
    if (!reason.empty())
        return fail(place.path, reason);
    if (::fstatat(place.around, place.name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
        !S_ISREG(there.st_mode) && !S_ISLNK(there.st_mode))
        return fail(place.path, S_ISDIR(there.st_mode) ? "a folder is in its place"
                                                       : "a device, pipe or socket is in its place");
    const std::string staged = place.path.substr(place.path.rfind('/') + 1);
    reason = setSavedTime(place.staged, staged, place.item.modified);
    if (::renameat(place.staged, staged.c_str(), place.around, place.name.c_str()) != 0)
        reason = reasonText();
    if (!reason.empty() || !lost.empty())
        fail(place.path, reason.empty() ? lost : reason);
}

// Without the key in use nothing else could be restored. A link may lead to the key.
bool RestoreDelivery::replacesTheKey(const Place& place) const {
    constexpr std::size_t longestKey = 4096;
    if (!keyPaths_.contains(place.target))
        return false;
    const std::string name = lastPathComponent(place.path);
    const FileReading inUse = readFile(keyFile_, longestKey, SymbolicLinks::Follow);
    if (!inUse.succeeded())
        return false;
    return place.item.kind == ItemKind::Link
               ? linkTarget(place.around, place.name) != linkTarget(place.staged, name)
               : inUse.bytes != readFile(pathOfDescriptor(place.staged) + '/' + name, longestKey).bytes;
}

std::string RestoreDelivery::faultOf(const Place& place) {
    if (const std::string* const error = errors_.errorAt(place.path))
        return *error;
    struct stat status {};
    const std::string staged = place.path.substr(place.path.rfind('/') + 1);
    if (::fstatat(place.staged, staged.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT || place.staged < 0 ? missing : std::string(missing) + ": " + reasonText();
    if (std::string error = errorOfOtherNames(status); !error.empty())
        return error;
    if (std::string error = hardLinks_.faultOf(status); !error.empty())
        return error;
    if (place.item.kind == ItemKind::Link && isTargetInDoubt(place, staged))
        return "the link's target may not have been UTF-8, which restic cannot store; not restored";
    const bool isAsSaved =
        place.item.kind == ItemKind::Link
            ? S_ISLNK(status.st_mode)
            : S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) == place.item.size;
    return isAsSaved ? "" : "the restored file does not match the backup";
}

std::string RestoreDelivery::errorOfOtherNames(const struct stat& status) const {
    if (S_ISDIR(status.st_mode) || status.st_nlink < 2)
        return {};
    if (const auto found = errorsOfInodes_.find(status.st_ino); found != errorsOfInodes_.end())
        return found->second;
    return errors_.below.empty() ? std::string() : errors_.below.begin()->second;
}

// restic stores U+FFFD for bytes that are not UTF-8. If the original link still exists as it was saved, its
// target shows whether that has happened.
bool RestoreDelivery::isTargetInDoubt(const Place& place, const std::string& staged) {
    const std::string target = linkTarget(place.staged, staged);
    struct stat now {};
    return target.find("\xEF\xBF\xBD") != std::string::npos &&
           (::lstat(place.path.c_str(), &now) != 0 ||
            !isUnchanged(place.item, ItemKind::Link, 0, FileTime(now.st_mtim), FileTime(now.st_ctim)) ||
            linkTarget(AT_FDCWD, place.path) != target);
}

// Works in the staging folder, where nobody else has access.
std::string RestoreDelivery::prepare(const Place& place, const SavedAccess& access) const {
    if (place.item.kind != ItemKind::File)
        return {};
    const std::string staged = place.path.substr(place.path.rfind('/') + 1);
    if (std::string reason = completeAttributes(place); !reason.empty())
        return reason;
    const FileDescriptor file(::openat(place.staged, staged.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0)
        return reasonText();
    const mode_t mode = modeFor(withAcl(access, pathOfDescriptor(file.get())), status);
    if (mode != (status.st_mode & ~static_cast<mode_t>(S_IFMT)) &&
        ::fchmodat(place.staged, staged.c_str(), mode, 0) != 0)
        return "its mode cannot be set: " + reasonText();
    return place.item.size < smallestWithHoles ? std::string() : digHoles(place.staged, staged);
}

// If an ACL denies the owner write access, restic may have set it first, and then failed to set the other
// attributes without reporting it.
std::string RestoreDelivery::completeAttributes(const Place& place) const {
    const std::string name = lastPathComponent(place.path);
    const FileDescriptor staged(::openat(place.staged, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    const std::string self = pathOfDescriptor(staged.get());
    const Snapshot* const snapshot = index_.snapshot(place.item.snapshot);
    if (!staged || !snapshot || ::faccessat(AT_FDCWD, self.c_str(), W_OK, AT_EACCESS) == 0 ||
        ::getxattr(self.c_str(), "system.posix_acl_access", nullptr, 0) <= 0)
        return {};
    RestoreTrouble trouble;
    const std::optional<SavedNode> node = nodes_.find(snapshot->id, place.path, trouble);
    if (!node)
        return "its attributes cannot be read: " + trouble.reason;
    return makeOwnerAccessible(staged.get()) ? setAttributes(self, node->attributes)
                                             : "its mode cannot be set: " + reasonText();
}

// A mode without its ACL may grant access that the ACL denied. restic omits, without a message,
// attributes that the file system does not support.
std::string RestoreDelivery::lostAccessRules(std::uint32_t number, const std::string& path) const {
    if (staging_.keepsAccessRules() || !staging_.keepsModes())
        return {}; // No ACL is lost, or modes have no effect. A query takes half a second for each folder.
    const Snapshot* const snapshot = index_.snapshot(number);
    if (!snapshot)
        return {};
    RestoreTrouble trouble;
    const std::optional<SavedNode> node = nodes_.find(snapshot->id, path, trouble);
    if (!node)
        return "restored with access for its owner only: cannot determine whether it had an ACL: " +
               trouble.reason;
    const bool isLost =
        std::ranges::any_of(node->attributes, [](const auto& each) { return isAccessRule(each.first); });
    return isLost ? "restored with access for its owner only: the target file system does not support ACLs"
                  : "";
}

void RestoreDelivery::deliverFolder(const Place& place, bool isAlone) {
    const bool isSaved = place.item.snapshot != 0; // Otherwise only contents of the folder are known.
    const std::string name = place.path.substr(place.path.rfind('/') + 1);
    const FileDescriptor staged = isSaved ? openFolderIn(place.staged, name) : FileDescriptor();
    if (isSaved && !staged)
        return fail(place.path, missing);
    if (const std::string reason = completeAttributes(place); !reason.empty())
        fail(place.path, reason);
    const std::string lost = lostAccessRules(place.item.snapshot, place.path);
    const std::optional<FolderMetadata> metadata =
        isSaved
            ? std::optional<FolderMetadata>({staged.get(), accessOf(place.item, lost), place.item.modified})
            : std::nullopt;
    std::string reason;
    FileDescriptor target = openFolderIn(place.around, place.name);
    const bool isElsewhere = target && place.target != place.path;
    if (!target && errno == ENOENT)
        target = makeFolder(place.around, place.name, metadata ? &*metadata : nullptr, reason);
    if (!target)
        return fail(place.path, errno == ENOTDIR
                                    ? "there is a file or link instead of a folder at " + place.target
                                    : place.target + ": " + reasonText());
    if (metadata && isElsewhere)
        reason = metadata->narrow(target.get());
    const std::size_t failuresBefore = failures_.size();
    if (const AccessForOwner access(target.get(), place.target, journal_); !isAlone)
        deliverContents(place, staged.get(), target.get());
    // Files that were not replaced are not from the backup, so their folder keeps its owner and attributes.
    const bool isShared =
        isElsewhere && (shared_.contains(&place.item) || failures_.size() > failuresBefore || stop_.isSet());
    if (metadata && !isShared)
        reason = metadata->applyTo(target.get(), FolderMetadata::Use::Final);
    if (const std::string* const error = errors_.errorAt(place.path))
        reason = *error;
    if (!reason.empty() || !lost.empty())
        fail(place.path, reason.empty() ? lost : reason);
}

void RestoreDelivery::deliverContents(const Place& folder, int staged, int target) {
    std::map<std::uint32_t, FileDescriptor> others; // The staged folders of other snapshots.
    const auto contents = lastContents(index_, folder.item);
    if (!staging_.tellsNamesApart()) {
        std::map<std::uint32_t, std::vector<std::string>> names;
        for (const BackupIndex::Item* const child : contents)
            names[child->snapshot].emplace_back(index_.nameOf(*child));
        for (const auto& [snapshot, each] : names)
            lookForClashes(stagedFolder(snapshot, folder.path).get(), folder.path, each);
    }
    for (const BackupIndex::Item* const child : contents) {
        if (stop_.isSet())
            return;
        int from = staged;
        if (child->snapshot != folder.item.snapshot) {
            const auto [other, isNew] = others.try_emplace(child->snapshot);
            if (isNew)
                other->second = stagedFolder(child->snapshot, folder.path);
            from = other->second.get();
        }
        const std::string name(index_.nameOf(*child));
        deliver({.item = *child,
                 .path = withSeparator(folder.path) + name,
                 .target = withSeparator(folder.target) + name,
                 .staged = from,
                 .around = target,
                 .name = name},
                false);
    }
}

void RestoreDelivery::fail(const std::string& path, const std::string& reason) {
    failures_.push_back({path, reason});
}

} // namespace kelvane
