#pragma once

#include "LocalDaemon/Rules/BackupRules.h"
#include "Platform/Files/FileSystem.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// How a file or folder stands to what has been backed up.
struct BackupStanding {
    std::optional<Date> date;  // of its last copy; none: it was never backed up
    std::uint32_t version = 0; // of that
    bool isWaiting = false;    // new or changed, or something in the folder is
    bool isMixed = false;      // something in the folder is waiting, and something is not
    bool isKept = false;       // a copy with content is there, whatever the rules say now
    bool isMissing = false;    // gone from the disk
    bool isDamaged = false;    // the copy cannot be given back
};

// What a pane is shown of one file's place in the backup.
struct NodeLook {
    std::uint32_t backupFlags = 0;
    std::uint32_t simpleFlags = 0;
    std::int32_t color = 0;
    std::string state; // why, for people
};

// `isPartial`: something in the folder has another verdict by a person's will.
[[nodiscard]] NodeLook lookOf(std::string_view path, FileAttributes::Kind kind, const Verdict& verdict,
                              bool isPartial, const BackupStanding& standing);

} // namespace kelvane
