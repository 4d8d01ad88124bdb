#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/StopSignal.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

namespace kelvane {

// The prefix of staging folders, in which restored files are stored before they are delivered. A staging
// folder is created beside the targets, so that delivery is only a rename. A folder with this prefix is never
// backed up.
inline constexpr std::string_view stagingPrefix = ".kelvane-restore-";

// Opens a folder with O_PATH, which needs no permission to list it. No component may be a symbolic link, so
// that nobody can redirect a restore; a path may be longer than PATH_MAX. Returns no descriptor and sets
// errno on failure, to ENOTDIR also for a link.
[[nodiscard]] FileDescriptor openFolder(const std::string& absolutePath);
[[nodiscard]] FileDescriptor openFolderIn(int folder, const std::string& name);
// Returns a path to the open file, whatever has replaced it in its folder meanwhile.
[[nodiscard]] std::string pathOfDescriptor(int descriptor);

// Returns the target with the symbolic links in its existing parent folders resolved, as is done once, when a
// restore is requested. Unlike `withoutLinks` it keeps the last component: a restored item replaces a link of
// its name and does not follow it.
[[nodiscard]] std::string targetWithoutLinks(const std::string& target);

// Returns, as resolved targets, the paths that lead to a file: its own, those of its parent folders, and
// those of the targets of symbolic links among them.
[[nodiscard]] std::set<std::string> pathsTo(const std::string& file);
// Returns empty when it is not a symbolic link or cannot be read.
[[nodiscard]] std::string linkTarget(int folder, const std::string& name);

struct StagingPlace {
    enum class Kind {
        Ready,    // A staging folder can be created in `folder`.
        Contents, // None can be created for the folder itself, but perhaps for each of its contents.
        Nowhere,  // Impossible, for the given `reason`.
    };
    Kind kind = Kind::Nowhere;
    std::string folder;
    std::string reason;
};
// Finds the parent of a staging folder for an absolute target path.
[[nodiscard]] StagingPlace stagingPlaceFor(const std::string& target, bool isFolder);

// Returns an unpredictable path for a new staging folder in `around`, so that nobody can create it
// first.
[[nodiscard]] std::string newStagingPath(const std::string& around, std::uint32_t job);

// A staging folder that only this user can access, without inherited ACLs and attributes. Creating it
// fails if the path exists.
class StagingFolder {
public:
    explicit StagingFolder(const std::string& path);

    // Empty when the folder was created.
    [[nodiscard]] const std::string& failure() const { return failure_; }
    [[nodiscard]] int descriptor() const { return folder_.get(); }
    // Waits until everything written is on its disk. Returns empty, or the reason of a write error since
    // this folder was created, which the kernel reports only once.
    [[nodiscard]] std::string sync() const;
    // Whether its file system supports ACLs.
    [[nodiscard]] bool keepsAccessRules() const { return keepsAccessRules_; }
    // Whether its file system supports modes; otherwise a mount option determines access.
    [[nodiscard]] bool keepsModes() const { return keepsModes_; }
    // Whether its file system tells names apart that differ by case or the encoding of accents.
    [[nodiscard]] bool tellsNamesApart() const { return tellsNamesApart_; }
    // Returns a path for restic, which runs as another process. Valid while this object lives.
    [[nodiscard]] std::string path() const;
    [[nodiscard]] FileDescriptor open(const std::string& relativePath) const; // Fails as openFolder does.
    // Returns false and sets errno when something remains in it.
    [[nodiscard]] bool clear() const;
    // Moves the contents of one of its folders into another, which may contain the same folders, and
    // removes the first. Folders that both contain are accessible to their owner afterwards. Returns
    // false and sets errno on failure.
    [[nodiscard]] bool merge(const std::string& from, const std::string& into) const;

private:
    FileDescriptor folder_;
    // The same folder, opened before anything was written, so that `sync` reports every write error.
    FileDescriptor synced_;
    std::string failure_;
    bool keepsAccessRules_ = false;
    bool keepsModes_ = false;
    bool tellsNamesApart_ = true;
};

// Removes a staging folder of this user with all its contents, including write-protected folders.
// Anything else at the path is kept, which is logged, and counts as removed. Returns false, and logs the
// first reason, when something remains or may remain because the parent folder does not exist, as on an
// unmounted disk. When it is stopped, it keeps the rest and logs nothing.
bool removeStaging(const std::string& path, const StopSignal* stop = nullptr);

// Returns the free bytes that this user may use; the largest number when that is unknown.
[[nodiscard]] std::uint64_t freeSpaceAt(const std::string& folder);

// A deep tree needs many open folders at once.
void raiseDescriptorLimit();

} // namespace kelvane
