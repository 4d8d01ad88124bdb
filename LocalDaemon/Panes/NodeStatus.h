#pragma once

#include "LocalDaemon/Rules/BackupRules.h"
#include "Platform/Files/FileSystem.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// The relation of a file or folder to the backup.
struct BackupStanding {
    std::optional<Date> date;  // The date of the last backup; none when it was never backed up.
    std::uint32_t version = 0; // The version of the last backup.
    bool isPending = false;    // It is new or changed, or the folder has pending contents.
    bool isMixed = false;      // The folder has both pending and saved contents.
    bool isKept = false;       // The backup has a version with contents, whatever the current rules.
    bool isMissing = false;    // Missing on the disk.
    bool isDamaged = false;    // The saved version cannot be restored.
};

// The backup status of a file as panes display it.
struct NodeStatus {
    std::uint32_t backupFlags = 0;
    std::uint32_t simpleFlags = 0;
    std::int32_t color = 0;
    std::string state; // The status and its reason as a text for the user.
};

// `isPartial`: a rule of the user decides differently for something in the folder.
[[nodiscard]] NodeStatus statusOf(std::string_view path, FileAttributes::Kind kind, const Verdict& verdict,
                                  bool isPartial, const BackupStanding& standing);

} // namespace kelvane
