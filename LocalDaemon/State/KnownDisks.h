#pragma once

#include "LocalDaemon/Rules/MountedSelection.h"
#include "LocalDaemon/Rules/PathResolver.h"
#include "LocalDaemon/State/DaemonState.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Files/Volumes.h"

#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace kelvane {

// The mounted disks, and those that have files in the backup and are not mounted. They are remembered in
// the settings.
//
// Any thread. Blocks on the disk, without a lock of the state. Panes are notified of absent disks by the
// changes of rules and alerts.
class KnownDisks {
public:
    KnownDisks(std::shared_ptr<DaemonState> state, std::shared_ptr<const FileSystem> fileSystem);

    // Remembers the mounted disks. Those without files in the backup are forgotten at the next start.
    void note(const Volumes& mounted);
    // Returns the mounted volumes and the absent disks with files in the backup, which can be browsed
    // and restored. Never null.
    [[nodiscard]] std::shared_ptr<const Volumes> volumes() const;
    // Returns a resolver for paths in these volumes, for one request.
    [[nodiscard]] PathResolver pathResolver() const { return PathResolver(volumes()); }

    // Returns the selection on the current mounts.
    [[nodiscard]] MountedSelection selection() const { return {state_->rules(), fileSystem_->mounts()}; }

    // Finds out which saved paths are absent. Unless the user has given it up, an absent path is not
    // backed up, nothing below it counts as deleted, and an alert is raised.
    void lookForAbsent();
    // Does the same, and returns the file systems that contain the selection.
    [[nodiscard]] MountsOfSelection updateMounts();
    // Remembers the file systems of a backup. `areAllKnown`: the backup contains the whole selection, so
    // that mounts outside it are forgotten.
    void noteMounts(const MountsOfSelection& selection, bool areAllKnown);
    // Returns the reason of a failure for the user, empty on success. `name` is the argument of the
    // alert's action.
    [[nodiscard]] std::string decide(const std::string& name, AwayDisk::Decision decision);
    // Returns why nothing can be restored to the path now, for the user: it belongs on a disk that is
    // not mounted. Empty when it can. Updates the absent disks as above.
    [[nodiscard]] std::string refusalFor(const std::string& path);
    // Returns the absent paths that have files in the backup.
    [[nodiscard]] std::set<std::string, std::less<>> absentInBackup() const;

private:
    void report() const;

    const std::shared_ptr<DaemonState> state_;
    const std::shared_ptr<const FileSystem> fileSystem_;

    // Serializes the searches, so that the latest one counts; guards the members below, and is locked
    // before the state's.
    std::mutex looking_;
    Absences away_; // Includes those that the user has given up.
};

} // namespace kelvane
