#pragma once

#include "LocalDaemon/Backup/VerificationRecord.h"
#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/Index/BackupIndex.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

inline constexpr const char* damageAlert = "backup_damaged";

// What people are told of the damage to a backup. Blocks on the disk.
struct DamageReport {
    // Of both kinds the first few, as text.
    std::vector<std::string> stored; // on the disk as well
    std::vector<std::string> lost;
    std::uint64_t storedCount = 0;
    std::uint64_t lostCount = 0;
    std::uint64_t earlierCount = 0; // files of which only versions that were replaced since are damaged

    DamageReport() = default;
    DamageReport(const BackupIndex& index, const Damage& damage);
    [[nodiscard]] std::uint64_t fileCount() const { return storedCount + lostCount; }
    // "3 files in the backup are damaged; 1 pack file is missing", or that there is no damage.
    [[nodiscard]] std::string outcome(const VerificationRecord& record) const;
    [[nodiscard]] Alert alert(const VerificationRecord& record, bool canBeStoredAgain) const;
};

[[nodiscard]] bool isDamageKnown(const VerificationRecord& record);

// Whether the disk still has each file in the very version that the damage touches. A pack that is set aside
// takes whole contents along, and with those of folders every other snapshot that holds them.
[[nodiscard]] bool areOnDisk(const Damage& damage, const BackupIndex& index);

} // namespace kelvane
