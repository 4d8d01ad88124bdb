#pragma once

#include "LocalDaemon/Restic/Snapshots.h"

#include <map>
#include <string>
#include <sys/stat.h>

namespace kelvane {

struct SavedAccess {
    uid_t user = 0;
    gid_t group = 0;
    mode_t mode = 0; // If there is an ACL, the group bits are its mask.
    // The ACL's permissions for the owning group (ACL_GROUP_OBJ), as bits of others.
    mode_t aclOfGroup = S_IRWXO;
};

// Adds the ACL of the file at the path, if it has one.
[[nodiscard]] SavedAccess withAcl(SavedAccess saved, const std::string& path);

// Returns the mode for an item that may now have a different owner or group, so that nobody gets more
// access than was saved: without setuid and setgid bits that would apply to a different user or group,
// and with the rights of others for a different group.
[[nodiscard]] mode_t modeFor(const SavedAccess& saved, const struct stat& now);

// Returns whether the attribute is an ACL or a default ACL.
[[nodiscard]] bool isAccessRule(const std::string& name);

// Extended attributes by name. `setAttributes` skips those that only root may set, and those that the file
// system does not support, but never an ACL, which may be more restrictive than the mode. ACLs are set last,
// since they may forbid setting the others. Returns empty, or the reason of a failure.
using Attributes = std::map<std::string, std::string>;
[[nodiscard]] std::string setAttributes(const std::string& path, const Attributes& attributes);

// A folder's mode and owner, and the times and extended attributes of the staged folder, read on
// construction because moving its contents changes its times. Folders are descriptors, for which O_PATH
// is enough. Blocks on the disk.
class FolderMetadata {
public:
    FolderMetadata(int folder, const SavedAccess& access, FileTime modified);

    enum class Use { BeingFilled, Final }; // While it is filled, its owner has full access.
    // Removes attributes that were not saved. An owner that only root may set is left unchanged. Returns
    // empty, or the reason of a failure.
    [[nodiscard]] std::string applyTo(int folder, Use use) const;
    // Restricts access to an existing folder with other contents to what was saved; its owner,
    // attributes and times stay. Returns empty, or the reason of a failure.
    [[nodiscard]] std::string narrow(int folder) const;

private:
    [[nodiscard]] std::string replaceAttributes(const std::string& path) const;

    SavedAccess access_;
    FileTime modified_;
    struct stat status_ {};
    Attributes attributes_;
    std::string failure_; // Why it could not be read.
};

// Restricts access to a folder to that which the saved folder's mode and ACL grant. Returns empty, or
// the reason of a failure.
[[nodiscard]] std::string narrowFolder(int folder, SavedAccess saved, const Attributes& attributes);

// Sets the saved time of a staged file or link, which restic does not set when it exceeds 64 bits of
// nanoseconds. Nobody else must have access to the folder. Returns empty, or why the time differs.
[[nodiscard]] std::string setSavedTime(int folder, const std::string& name, FileTime modified);

// Frees the blocks of zeros in a staged file; its mode, times and capabilities stay. Nobody else must
// have access to the folder. Returns empty, or the reason of a failure.
[[nodiscard]] std::string digHoles(int folder, const std::string& name);

} // namespace kelvane
