#pragma once

#include "Platform/Files/FileServices.h"
#include "PreferencePane/Browser/KelvaneBrowserCell.h"

#include <memory>
#include <optional>
#include <vector>

namespace kelvane {

class ColumnBrowser;

using BrowserRows = std::vector<KelvaneBrowserCell>;

// Says what stands in the columns of a browser, which does not own it and asks nothing any more once it has
// gone.
class ColumnBrowserDelegate {
public:
    virtual ~ColumnBrowserDelegate() = default;
    ColumnBrowserDelegate(const ColumnBrowserDelegate&) = delete;
    ColumnBrowserDelegate& operator=(const ColumnBrowserDelegate&) = delete;

    // The rows of a column from the top; none to keep those that it has. Two rows of one path are told apart
    // by their order.
    //
    // May take its time, and use the browser meanwhile: select, and reload any column, this one too. What it
    // then returns counts unless the column has gone or a fill that began later has already been shown.
    [[nodiscard]] virtual std::optional<BrowserRows> createRowsForColumn(ColumnBrowser& browser,
                                                                         int column) = 0;

    // For a cell without an image whose row is shown for the first time; null when there is none. Called
    // while painting: leaves the browser alone.
    [[nodiscard]] virtual IconHandle imageForCell(const KelvaneBrowserCell& cell) = 0;

    // Null once it has gone.
    [[nodiscard]] std::weak_ptr<ColumnBrowserDelegate> handle() const { return handle_; }

protected:
    ColumnBrowserDelegate() = default;

private:
    const std::shared_ptr<ColumnBrowserDelegate> handle_{this, [](const ColumnBrowserDelegate*) {}};
};

} // namespace kelvane
