#pragma once

#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Rules/MountedSelection.h"
#include "LocalDaemon/State/Settings/Settings.h"
#include "Platform/Files/FileSystem.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace kelvane {

// Why what stands at a place cannot be what was backed up from there.
enum class Absence {
    NotMounted, // a file system was mounted there
    Empty,      // or missing, as it is when something was mounted above it or has replaced it
    Covered,    // something is mounted over what was backed up
    Another,    // another file system than the one that was backed up is mounted there
    Silent,     // what is mounted there does not answer
};

// By mount point or folder.
using Absences = std::map<std::string, Absence, std::less<>>;

// Whether the backup holds anything of a disk, if only folders.
[[nodiscard]] bool isInBackup(const BackupIndex& index, const std::string& path);

// Where what the backup holds is away now, whatever a person has decided about it: on the mount points that
// the settings remember, in the home folder and the volumes, and where something is mounted in a folder or
// over what is selected. A place that a mount point above it explains is not named by itself. Blocks on the
// disk.
[[nodiscard]] Absences absencesNow(const Settings& settings, const BackupRules& rules,
                                   const BackupIndex& index, const FileSystem& fileSystem);

// The mount point, "/" too, at which what was backed up from a path lay in the last backup. Empty: that is
// not known.
[[nodiscard]] std::string mountPointBefore(const Settings& settings, std::string_view path);

// The paths at which a rule has to say so: each place, and what has been selected below one.
[[nodiscard]] std::set<std::string, std::less<>>
pathsOfAbsences(const Absences& absences, const Settings& settings, const BackupRules& rules);

struct MountsOfSelection {
    Mounts mounts; // the file systems that hold what is selected and there, less the system's own
    std::map<std::string, std::string, std::less<>> points; // the mount points, "/" too, by selected path

    friend bool operator==(const MountsOfSelection&, const MountsOfSelection&) = default;
};

// Blocks on the disk.
[[nodiscard]] MountsOfSelection mountsOfSelection(const MountedSelection& selection,
                                                  const FileSystem& fileSystem);

inline constexpr const char* awayDiskAlertPrefix = "disk_away-";
// The verbs of what can be done about one; their argument is what `nameOfAwayDisk` says.
inline constexpr const char* keepDiskVerb = "keep-disk";
inline constexpr const char* forgetDiskVerb = "forget-disk";

[[nodiscard]] std::string nameOfAwayDisk(const std::string& path);
// Of one that a person has not given up. `now`: seconds since 1970.
[[nodiscard]] Alert alertForAwayDisk(const std::string& path, Absence absence, const AwayDisk& disk,
                                     std::int64_t now);

} // namespace kelvane
