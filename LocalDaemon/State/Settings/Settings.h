#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/Rules/BackupRules.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace kelvane {

// A disk that has files in the backup and is not mounted.
struct AwayDisk {
    enum class Decision {
        None,
        Keep,   // Its absence is intended: the alert is only information.
        Forget, // Given up: the current contents of its folder are backed up instead.
    };

    std::int64_t since = 0; // When it was first missing, in seconds since 1970.
    Decision decision = Decision::None;

    friend bool operator==(const AwayDisk&, const AwayDisk&) = default;
};

// File system ids, as returned by `fileSystemIdAt`, by mount point.
using Mounts = std::map<std::string, std::string, std::less<>>;

// The settings made by panes, which a restart preserves.
struct Settings {
    bool automaticMode = true;
    bool hasManualSelection = false; // Manual mode has been used before.
    bool enabled = true;
    bool recoverMode = false;
    bool lowerPriorityMode = false;
    bool delayShutdown = false;
    bool includeRequired = false;
    std::uint32_t backupControlFlags = 0;
    std::int64_t pausedSince = 0; // Seconds since 1970.
    std::int64_t pausedUntil = 0; // Seconds since 1970; 0 or in the past when not paused.
    Dictionary profile;           // Values are strings.
    Dictionary fileTypeToggles;   // Values are unsigned 32-bit numbers.
    PathRules paths;
    std::set<std::string, std::less<>>
        disks;     // Mount points, including disks that are not mounted but have files in the backup.
    Mounts mounts; // The file systems of the last backup, without the system's own.
    std::map<std::string, std::string, std::less<>>
        mountPoints; // The mount points that contained the selected paths in the last backup, by path.
    std::map<std::string, AwayDisk> awayDisks; // By mount point, or by the folder that is empty.

    friend bool operator==(const Settings&, const Settings&) = default;
};

[[nodiscard]] Value valueFromSettings(const Settings& settings);

// An entry that is missing or has the wrong type gets its default.
[[nodiscard]] Settings settingsFromValue(const Value& value);

// Sets an entry of `profile` or `fileTypeToggles`. Returns false when the key or the text is too long or
// there are too many entries: a pane must not be able to fill the disk.
[[nodiscard]] bool setEntry(Dictionary& entries, const std::string& key, const Value& value);

// Returns whether all path rules together exceed their limit.
[[nodiscard]] bool isTooLarge(const PathRules& paths);

} // namespace kelvane
