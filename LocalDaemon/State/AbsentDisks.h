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

// Why the current contents of a path cannot be what was backed up from there.
enum class Absence {
    NotMounted, // A file system was mounted there.
    Empty,      // Or missing, as when something is mounted above it or has replaced it.
    Covered,    // Something is mounted over what was backed up.
    Another,    // A different file system is mounted there than was backed up.
    Silent,     // The mount there does not respond.
};

// The keys are the absent mount points and folders.
using Absences = std::map<std::string, Absence, std::less<>>;

// Returns whether the backup contains the file at the path, or anything in the folder, even only folders.
[[nodiscard]] bool isInBackup(const BackupIndex& index, const std::string& path);

// Returns the paths with saved contents that are absent now, regardless of the user's decisions: at the
// mount points in the settings, in the home folder and the volumes, and where something is mounted inside or
// over the selection. A path below an absent mount point is not listed separately. Blocks on the disk.
[[nodiscard]] Absences absencesNow(const Settings& settings, const BackupRules& rules,
                                   const BackupIndex& index, const FileSystem& fileSystem);

// Returns the mount point, possibly "/", that contained a path in the last backup. Empty when unknown.
[[nodiscard]] std::string mountPointBefore(const Settings& settings, std::string_view path);

// Returns the paths that need a rule for the absence: each absent path, and what is selected below it.
[[nodiscard]] std::set<std::string, std::less<>>
pathsOfAbsences(const Absences& absences, const Settings& settings, const BackupRules& rules);

struct MountsOfSelection {
    Mounts mounts; // The mounted file systems that contain the selection, without the system's own.
    // The mount points, possibly "/", by selected path.
    std::map<std::string, std::string, std::less<>> points;

    friend bool operator==(const MountsOfSelection&, const MountsOfSelection&) = default;
};

// Blocks on the disk.
[[nodiscard]] MountsOfSelection mountsOfSelection(const MountedSelection& selection,
                                                  const FileSystem& fileSystem);

inline constexpr const char* awayDiskAlertPrefix = "disk_away-";
// The verbs of the actions for an absent disk; their argument is the result of `nameOfAwayDisk`.
inline constexpr const char* keepDiskVerb = "keep-disk";
inline constexpr const char* forgetDiskVerb = "forget-disk";

[[nodiscard]] std::string nameOfAwayDisk(const std::string& path);
// The user must not have given up the disk. `now`: seconds since 1970.
[[nodiscard]] Alert alertForAwayDisk(const std::string& path, Absence absence, const AwayDisk& disk,
                                     std::int64_t now);

} // namespace kelvane
