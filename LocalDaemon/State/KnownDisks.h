#pragma once

#include "LocalDaemon/Rules/MountedSelection.h"
#include "LocalDaemon/Rules/PathEntrance.h"
#include "LocalDaemon/State/DaemonState.h"
#include "Platform/Files/FileSystem.h"
#include "Platform/Files/Volumes.h"

#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace kelvane {

// The disks that are mounted, and those that hold something in the backup and are away. What it remembers of
// them stands in the settings.
//
// Any thread. Blocks on the disk, without a lock of the state. Panes hear of what is away as they do of rules
// and alerts that change.
class KnownDisks {
public:
    KnownDisks(std::shared_ptr<DaemonState> state, std::shared_ptr<const FileSystem> fileSystem);

    // Remembers the disks that are mounted. At the next start those that have nothing in the backup by then
    // are forgotten.
    void note(const Volumes& mounted);
    // Those that are mounted, and the disks that are away and have something in the backup: what was on them
    // can be looked at and restored. Never null.
    [[nodiscard]] std::shared_ptr<const Volumes> volumes() const;
    // Leads to these, for one request.
    [[nodiscard]] PathEntrance entrance() const { return PathEntrance(volumes()); }

    // What is selected among what is mounted now.
    [[nodiscard]] MountedSelection selection() const { return {state_->rules(), fileSystem_->mounts()}; }

    // Finds out where what was backed up is away with its disk. Unless a person has given it up, nothing is
    // backed up from there, nothing counts as deleted, and an alert says so.
    void lookForAbsent();
    // The same, and returns the file systems that hold what is to be backed up.
    [[nodiscard]] MountsOfSelection lookForMounts();
    // Remembers the file systems from which a backup was made; `areAllKnown`: it has all that is selected,
    // and others are forgotten.
    void noteMounts(const MountsOfSelection& selection, bool areAllKnown);
    // Returns why it cannot be decided, for people; empty when it is. `name` is the alert's argument.
    [[nodiscard]] std::string decide(const std::string& name, AwayDisk::Decision decision);
    // Why nothing can be restored to the path now, for people: it belongs on a disk that is away. Empty: it
    // can. Finds out which are away, as above.
    [[nodiscard]] std::string refusalFor(const std::string& path);
    // With files in the backup.
    [[nodiscard]] std::set<std::string, std::less<>> absentInBackup() const;

private:
    void report() const;

    const std::shared_ptr<DaemonState> state_;
    const std::shared_ptr<const FileSystem> fileSystem_;

    std::mutex looking_; // what is seen last counts; guards what follows, and is taken before the state's
    Absences away_;      // also what a person has given up
};

} // namespace kelvane
