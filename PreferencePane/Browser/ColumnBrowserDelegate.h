#pragma once

#include "Platform/Files/FileServices.h"
#include "PreferencePane/Browser/KelvaneBrowserCell.h"

#include <memory>
#include <optional>
#include <vector>

namespace kelvane {

class ColumnBrowser;

using BrowserRows = std::vector<KelvaneBrowserCell>;

// Provides the rows of a browser. The browser does not own it, and calls nothing after its destruction.
class ColumnBrowserDelegate {
public:
    virtual ~ColumnBrowserDelegate() = default;
    ColumnBrowserDelegate(const ColumnBrowserDelegate&) = delete;
    ColumnBrowserDelegate& operator=(const ColumnBrowserDelegate&) = delete;

    // Returns the rows of a column from the top; none keeps the current rows. Rows with the same path are
    // told apart by their order.
    //
    // May block, and may use the browser meanwhile: select rows and reload any column, including this one.
    // The result is ignored if the column was closed or a later fill has already been shown.
    [[nodiscard]] virtual std::optional<BrowserRows> createRowsForColumn(ColumnBrowser& browser,
                                                                         int column) = 0;

    // The image for a cell without one whose row is first shown; null when there is none. Called while
    // painting: must not change the browser.
    [[nodiscard]] virtual IconHandle imageForCell(const KelvaneBrowserCell& cell) = 0;

    // Expires when the delegate is destroyed.
    [[nodiscard]] std::weak_ptr<ColumnBrowserDelegate> handle() const { return handle_; }

protected:
    ColumnBrowserDelegate() = default;

private:
    const std::shared_ptr<ColumnBrowserDelegate> handle_{this, [](const ColumnBrowserDelegate*) {}};
};

} // namespace kelvane
