#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/Rules/BackupRules.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace kelvane {

// A disk that has files in the backup and is away.
struct AwayDisk {
    enum class Decision {
        None,
        Keep,   // nobody needs to be warned of it
        Forget, // it is gone for good: what stands in its place now is what is backed up
    };

    std::int64_t since = 0; // seconds since 1970: when it was first missed
    Decision decision = Decision::None;

    friend bool operator==(const AwayDisk&, const AwayDisk&) = default;
};

// File systems by mount point, each with what `fileSystemIdAt` says of it.
using Mounts = std::map<std::string, std::string, std::less<>>;

// What panes have set and a restart must not lose.
struct Settings {
    bool automaticMode = true;
    bool hasManualSelection = false; // manual mode has been entered before
    bool enabled = true;
    bool recoverMode = false;
    bool lowerPriorityMode = false;
    bool delayShutdown = false;
    bool includeRequired = false;
    std::uint32_t backupControlFlags = 0;
    std::int64_t pausedSince = 0; // seconds since 1970
    std::int64_t pausedUntil = 0; // likewise; in the past or 0: not paused
    Dictionary profile;           // strings
    Dictionary fileTypeToggles;   // unsigned 32-bit numbers
    PathRules paths;
    std::set<std::string, std::less<>>
        disks;     // mount points, also of disks that are away but have files in the backup
    Mounts mounts; // all but the system's own from which the last backup was made
    std::map<std::string, std::string, std::less<>>
        mountPoints;                           // at which what is selected lay in the last backup, by path
    std::map<std::string, AwayDisk> awayDisks; // by mount point, or by the folder that is empty

    friend bool operator==(const Settings&, const Settings&) = default;
};

[[nodiscard]] Value valueFromSettings(const Settings& settings);

// What is missing or of another kind keeps its default.
[[nodiscard]] Settings settingsFromValue(const Value& value);

// Sets an entry of `profile` or `fileTypeToggles`. False when the key or the text is longer than anyone needs
// or there are too many entries: what a pane sends must not fill the disk.
[[nodiscard]] bool setEntry(Dictionary& entries, const std::string& key, const Value& value);

// Likewise for all path rules together.
[[nodiscard]] bool isTooLarge(const PathRules& paths);

} // namespace kelvane
