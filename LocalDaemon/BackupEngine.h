#pragma once

#include "LocalDaemon/FileTotals.h"

namespace kelvane {

struct BackupTotals {
    FileTotals backedUp;
    FileTotals pending;
};

// What does the backing up. Any thread; the state's mutex is held, so that an answer must be at hand.
class BackupEngine {
public:
    virtual ~BackupEngine() = default;
    // How much of what the scan has found is backed up, and how much is waiting.
    [[nodiscard]] virtual BackupTotals totals(const FileTotals& found) const = 0;
};

// Stands in until there is a repository: everything is waiting.
class NothingBackedUp : public BackupEngine {
public:
    [[nodiscard]] BackupTotals totals(const FileTotals& found) const override { return {{}, found}; }
};

} // namespace kelvane
