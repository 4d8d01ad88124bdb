#pragma once

#include "PreferencePane/Browser/ColumnBrowser.h"
#include "PreferencePane/Services/PaneServices.h"

#include <cstdint>
#include <string>

namespace kelvane {

// From paths to rows and back, for browsers whose first column lists volumes and whose further columns list
// folders, each row under its item's own name. Main thread only.

// Of the row that is selected in the column; empty when there is none.
[[nodiscard]] std::string columnToPath(int column, const ColumnBrowser& inBrowser);

// The column that shows the path now, -1 when none does. Enables what is disabled on the way to it.
[[nodiscard]] int columnForPath(const std::string& path, ColumnBrowser& inBrowser, const Volumes& volumes,
                                BrowserRow* atCell = nullptr);

// Brings the row of a path up to date after the daemon's notice. False when the path is not shown; "/" and
// "/System/Volumes/Data" count as dealt with where they have no row. Asks the daemon.
bool fileChanged(const std::string& path, ColumnBrowser& inBrowser, bool isRestore,
                 const PaneServices& services);

// Bullet and words for a node's `backupColor`.
void setBackupColor(KelvaneBrowserCell& cell, std::int32_t color, const PaneServices& services);

} // namespace kelvane
