#pragma once

#include "LocalDaemon/BackupEngine.h"
#include "LocalDaemon/BackupRules.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// What a pane is shown of one file's place in the backup.
struct NodeLook {
    std::uint32_t backupFlags = 0;
    std::uint32_t simpleFlags = 0;
    std::int32_t color = 0;
    std::string state; // why, for people
};

// `isPartial`: something in the folder has another verdict by a person's will.
[[nodiscard]] NodeLook lookOf(std::string_view path, FileAttributes::Kind kind, const Verdict& verdict,
                              bool isPartial, const std::optional<BackupCopy>& copy);

} // namespace kelvane
