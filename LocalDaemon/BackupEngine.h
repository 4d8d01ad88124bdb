#pragma once

#include "LocalDaemon/FileTotals.h"
#include "Platform/FileSystem.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kelvane {

struct BackupTotals {
    FileTotals backedUp;
    FileTotals pending;
};

// The last copy of one file or folder.
struct BackupCopy {
    Date date;
    std::uint32_t version = 0;
    bool isCurrent = false; // nothing has changed since, in a folder nothing in it
};

// What does the backing up. Any thread.
class BackupEngine {
public:
    virtual ~BackupEngine() = default;
    // How much of what the scan has found is backed up, and how much is waiting. The state's mutex is held,
    // so that the answer must be at hand.
    [[nodiscard]] virtual BackupTotals totals(const FileTotals& found) const = 0;
    // Of what stands at the real path with these attributes now. None: it was never backed up.
    [[nodiscard]] virtual std::optional<BackupCopy> copyOf(const std::string& path,
                                                           const FileAttributes& attributes) const = 0;
};

// Stands in until there is a repository: everything is waiting.
class NothingBackedUp : public BackupEngine {
public:
    [[nodiscard]] BackupTotals totals(const FileTotals& found) const override { return {{}, found}; }
    [[nodiscard]] std::optional<BackupCopy> copyOf(const std::string& /*path*/,
                                                   const FileAttributes& /*attributes*/) const override {
        return std::nullopt;
    }
};

} // namespace kelvane
