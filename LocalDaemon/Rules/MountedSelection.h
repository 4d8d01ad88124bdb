#pragma once

#include "LocalDaemon/Rules/BackupRules.h"
#include "Platform/Files/MountTable.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelvane {

// The rules applied to the current mount points. A mount point inside a selected folder is excluded with
// everything below it, unless there is a rule at it; paths below it with a rule of their own are
// selected.
//
// A value; any thread. Never accesses the disk.
class MountedSelection {
public:
    // Neither may be null.
    MountedSelection(std::shared_ptr<const BackupRules> rules, std::shared_ptr<const MountPoints> mounts)
        : rules_(std::move(rules)), mounts_(std::move(mounts)) {}

    [[nodiscard]] const BackupRules& rules() const { return *rules_; }
    [[nodiscard]] const MountPoints& mounts() const { return *mounts_; }

    // Returns the verdict of the rules, or OtherFileSystem with the mount point that excludes the path.
    [[nodiscard]] Verdict verdictFor(std::string_view path) const;
    // Returns the rule at exactly this path, or OtherFileSystem for a mount point without a rule.
    [[nodiscard]] std::optional<Verdict> ruleAt(std::string_view path) const;
    // Returns whether anything is selected below a path that is not selected.
    [[nodiscard]] bool isSelectedBelow(std::string_view path) const {
        return isPartial(*rules_, path, false);
    }

    // Returns the deepest mount point at or above the path; "/" when the mount table is not available.
    [[nodiscard]] std::string mountPointOf(std::string_view path) const;

    // Returns the selected paths that are not reached from another selected folder.
    [[nodiscard]] std::vector<std::string> beginnings() const;
    // Returns the folders from which the scan reaches everything that is selected: the selected paths in
    // automatic mode, otherwise their parent folders. No root is reached from another one, although it
    // may be below it.
    [[nodiscard]] std::set<std::string> scanRoots() const;
    // Returns the mount points below the scan roots and those that contain the roots.
    [[nodiscard]] std::set<std::string> mountsOfScan() const;

private:
    std::shared_ptr<const BackupRules> rules_;
    std::shared_ptr<const MountPoints> mounts_;
};

} // namespace kelvane
