#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/BackupRules.h"

#include <cstdint>
#include <set>
#include <string>

namespace kelvane {

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
    std::int64_t pausedUntil = 0; // seconds since 1970; in the past or 0: not paused
    Dictionary profile;           // strings
    Dictionary fileTypeToggles;   // unsigned 32-bit numbers
    PathRules paths;
    std::set<std::string> disks; // mount points, also of disks that are away but have files in the backup

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
