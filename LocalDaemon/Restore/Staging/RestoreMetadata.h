#pragma once

#include "LocalDaemon/Restic/Snapshots.h"

#include <map>
#include <string>
#include <sys/stat.h>

namespace kelvane {

struct SavedAccess {
    uid_t user = 0;
    gid_t group = 0;
    mode_t mode = 0;             // of something with an ACL, its group's bits are the ACL's mask
    mode_t aclOfGroup = S_IRWXO; // what the ACL lets the group itself do, as everybody's bits
};

// With the ACL of what is at the path, if it has one.
[[nodiscard]] SavedAccess withAcl(SavedAccess saved, const std::string& path);

// A saved mode for something that may have another owner or group now: it gives nobody more than was saved. A
// program does not run as somebody it was not meant for, and another group may do what everybody may.
[[nodiscard]] mode_t modeFor(const SavedAccess& saved, const struct stat& now);

// An ACL, or what a folder passes on of one.
[[nodiscard]] bool isAccessRule(const std::string& name);

// Extended attributes. What a file system does not know is left out, except for an access rule, which may be
// narrower than the mode; so is what only root may set. Access rules come last, since they may forbid the
// others. Empty, or why it failed.
using Attributes = std::map<std::string, std::string>;
[[nodiscard]] std::string setAttributes(const std::string& path, const Attributes& attributes);

// A folder's mode and owner, and the times and extended attributes of the staged one, as they are when this
// is made: what is then taken out of the folder changes its times. Folders are descriptors, of which O_PATH
// is enough. Blocks on the disk.
class FolderMetadata {
public:
    FolderMetadata(int folder, const SavedAccess& access, FileTime modified);

    enum class Use { BeingFilled, Final }; // while it is filled its owner may do everything
    // What was not saved is taken off. An owner that only root may give stays as it is. Empty, or why it
    // failed.
    [[nodiscard]] std::string applyTo(int folder, Use use) const;
    // To a folder that holds other things too: it keeps its owner, attributes and times, and only loses
    // access that what comes into it must not have. Empty, or why it failed.
    [[nodiscard]] std::string narrow(int folder) const;

private:
    [[nodiscard]] std::string replaceAttributes(const std::string& path) const;

    SavedAccess access_;
    FileTime modified_;
    struct stat status_ {};
    Attributes attributes_;
    std::string failure_; // to read it
};

// Takes from a folder the access that what comes into it must not have by the saved folder's mode and ACL.
// Empty, or why it failed.
[[nodiscard]] std::string narrowFolder(int folder, SavedAccess saved, const Attributes& attributes);

// Gives a staged file or link the time that it was saved with, which restic does not when 64 bits of
// nanoseconds do not hold it. The folder is one that nobody else can reach. Empty, or why it has another
// time.
[[nodiscard]] std::string setSavedTime(int folder, const std::string& name, FileTime modified);

// Frees the blocks of a staged file that hold nothing but zeros; its mode, times and capabilities stay. The
// folder is one that nobody else can reach. Empty, or why it failed.
[[nodiscard]] std::string digHoles(int folder, const std::string& name);

} // namespace kelvane
