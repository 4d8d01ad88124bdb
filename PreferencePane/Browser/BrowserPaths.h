#pragma once

#include "PreferencePane/Browser/ColumnBrowser.h"
#include "PreferencePane/Services/PaneServices.h"

#include <cstdint>
#include <string>

namespace kelvane {

// Maps paths to rows and back, in browsers whose first column lists volumes and whose other columns list
// folders, with each row titled by its item's name. Main thread only.

// The path of the selected row in the column; empty when none is selected.
[[nodiscard]] std::string columnToPath(int column, const ColumnBrowser& inBrowser);

// The column that shows the path, or -1. Enables disabled rows on the way to it.
[[nodiscard]] int columnForPath(const std::string& path, ColumnBrowser& inBrowser, const Volumes& volumes,
                                BrowserRow* atCell = nullptr);

// Updates the row of a path after a notification of the daemon. Returns false when the path is not shown; "/"
// and "/System/Volumes/Data" count as updated when they have no row. Asks the daemon.
bool fileChanged(const std::string& path, ColumnBrowser& inBrowser, bool isRestore,
                 const PaneServices& services);

// Sets bullet and text for a node's `backupColor`.
void setBackupColor(KelvaneBrowserCell& cell, std::int32_t color, const PaneServices& services);

} // namespace kelvane
