#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/StopSignal.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

namespace kelvane {

// Where files of a restore come in before they take their places: a folder beside those places, so that a
// rename is all that is left to do. Nothing in a folder of this name is ever backed up.
inline constexpr std::string_view stagingPrefix = ".kelvane-restore-";

// A descriptor for a folder, without the right to list it. No symbolic link is followed in any component, so
// that nobody can lead a restore elsewhere; a path may be longer than the system takes at once. None, with
// errno, when it cannot be reached: ENOTDIR also for a link.
[[nodiscard]] FileDescriptor openFolder(const std::string& absolutePath);
[[nodiscard]] FileDescriptor openFolderIn(int folder, const std::string& name);
// A path that leads to what is open, whatever has been put in its place meanwhile.
[[nodiscard]] std::string pathOfDescriptor(int descriptor);

// A target as it is ordered, without the links on the way to it, which are followed only then.
[[nodiscard]] std::string targetWithoutLinks(const std::string& target);

// As such targets, the paths that lead to a file: its own, those of the folders around it, and of what each
// symbolic link among these leads to.
[[nodiscard]] std::set<std::string> pathsTo(const std::string& file);
// Empty when it is no link.
[[nodiscard]] std::string linkTarget(int folder, const std::string& name);

struct StagingPlace {
    enum class Kind {
        Ready,    // `folder` is where a staging folder can be made
        Contents, // not here, but perhaps in the folders of what is to be restored
        Nowhere,  // `reason` says why
    };
    Kind kind = Kind::Nowhere;
    std::string folder;
    std::string reason;
};
// For an absolute path that something is to be restored to.
[[nodiscard]] StagingPlace stagingPlaceFor(const std::string& target, bool isFolder);

// The path of a new staging folder in another one. Nobody can foresee it, and so nothing can be put there
// first.
[[nodiscard]] std::string newStagingPath(const std::string& around, std::uint32_t job);

// A staging folder that only this user can look into, without the access rules and attributes that a new
// folder inherits. Whatever has its path already stays, and it fails.
class StagingFolder {
public:
    explicit StagingFolder(const std::string& path);

    [[nodiscard]] const std::string& failure() const { return failure_; } // empty: it is there
    [[nodiscard]] int descriptor() const { return folder_.get(); }
    // Waits until its disk holds all that has been written to it. Empty, or why something has not come there
    // since this folder was made, which nobody else may ever be told.
    [[nodiscard]] std::string sync() const;
    // Whether its file system keeps ACLs.
    [[nodiscard]] bool keepsAccessRules() const { return keepsAccessRules_; }
    // Whether it keeps modes; else it has a rule of its own who gets in.
    [[nodiscard]] bool keepsModes() const { return keepsModes_; }
    // Whether names that differ by case are two there.
    [[nodiscard]] bool tellsNamesApart() const { return tellsNamesApart_; }
    // For restic, which runs beside this process.
    [[nodiscard]] std::string path() const;
    [[nodiscard]] FileDescriptor open(const std::string& relativePath) const; // as openFolder does
    // False with errno: something is left in it.
    [[nodiscard]] bool clear() const;
    // Moves what is in one of its folders into another one, where the same folders may be, and removes the
    // first. Those that are in both are open to their owner afterwards. False with errno.
    [[nodiscard]] bool merge(const std::string& from, const std::string& into) const;

private:
    FileDescriptor folder_;
    FileDescriptor synced_; // the same folder, opened before anything was written
    std::string failure_;
    bool keepsAccessRules_ = false;
    bool keepsModes_ = false;
    bool tellsNamesApart_ = true;
};

// Removes a staging folder of this user with all that is in it, also what nobody may write in. Anything else
// that has the path stays, which is logged, and counts as removed. False, and the first reason is logged,
// when something is left, or may be: the folder around it is not there, as on a disk that is not mounted.
// Stopped, it leaves what it has not come to, and logs nothing.
bool removeStaging(const std::string& path, const StopSignal* stop = nullptr);

// How many bytes a file system still takes from this user.
[[nodiscard]] std::uint64_t freeSpaceAt(const std::string& folder);

// Many folders are open at once in a deep tree.
void raiseDescriptorLimit();

} // namespace kelvane
