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

// What the rules select among what is mounted. A mount point inside a selected folder is left out with all
// that is below it, unless a rule stands at it; what is selected below it by a rule of its own is in.
//
// A value; any thread. Never looks at the disk.
class MountedSelection {
public:
    // Neither is null.
    MountedSelection(std::shared_ptr<const BackupRules> rules, std::shared_ptr<const MountPoints> mounts)
        : rules_(std::move(rules)), mounts_(std::move(mounts)) {}

    [[nodiscard]] const BackupRules& rules() const { return *rules_; }
    [[nodiscard]] const MountPoints& mounts() const { return *mounts_; }

    // As the rules say it, but for what such a mount leaves out: OtherFileSystem, with its mount point.
    [[nodiscard]] Verdict verdictFor(std::string_view path) const;
    // The rule at this very path; OtherFileSystem at any other mount point.
    [[nodiscard]] std::optional<Verdict> ruleAt(std::string_view path) const;
    // Whether anything is selected below a path that is not in.
    [[nodiscard]] bool isSelectedBelow(std::string_view path) const {
        return isPartial(*rules_, path, false);
    }

    // The deepest mount point at or above the path; "/" when the system does not say.
    [[nodiscard]] std::string mountPointOf(std::string_view path) const;

    // What has been selected and is in, and is not reached from a folder that is in.
    [[nodiscard]] std::vector<std::string> beginnings() const;
    // The folders from which everything that is in can be reached by going down: the beginnings in automatic
    // mode, else the folders that hold them. They are not in each other's reach, though one may lie below
    // another.
    [[nodiscard]] std::set<std::string> scanRoots() const;
    // Where something is mounted below the scan roots, and what holds these.
    [[nodiscard]] std::set<std::string> mountsOfScan() const;

private:
    std::shared_ptr<const BackupRules> rules_;
    std::shared_ptr<const MountPoints> mounts_;
};

} // namespace kelvane
