#pragma once

#include "LocalDaemon/Backup/VerificationRecord.h"
#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/Index/BackupIndex.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

inline constexpr const char* damageAlert = "backup_damaged";

// The damage to a backup, described for the user. Blocks on the disk.
struct DamageReport {
    // The first few files of both kinds, as text.
    std::vector<std::string> stored; // Files that are also on the disk.
    std::vector<std::string> lost;
    std::uint64_t storedCount = 0;
    std::uint64_t lostCount = 0;
    std::uint64_t earlierCount = 0; // The number of files of which only earlier versions are damaged.

    DamageReport() = default;
    DamageReport(const BackupIndex& index, const Damage& damage);
    [[nodiscard]] std::uint64_t fileCount() const { return storedCount + lostCount; }
    // Returns, for example, "3 files in the backup are damaged; 1 pack file is missing", or that there
    // is no damage.
    [[nodiscard]] std::string outcome(const VerificationRecord& record) const;
    [[nodiscard]] Alert alert(const VerificationRecord& record, bool canBeStoredAgain) const;
};

[[nodiscard]] bool isDamageKnown(const VerificationRecord& record);

// Returns whether the disk has every damaged file in the version that is damaged. This must be known
// before a pack is set aside, which also removes undamaged contents, and with a pack of folders those
// folders from every other snapshot that shares them.
[[nodiscard]] bool areOnDisk(const Damage& damage, const BackupIndex& index);

} // namespace kelvane
