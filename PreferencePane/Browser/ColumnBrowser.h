#pragma once

#include "PreferencePane/Browser/ColumnBrowserDelegate.h"

#include <QPersistentModelIndex>
#include <QScrollArea>
#include <string>
#include <vector>

class QListView;

namespace kelvane {

class ColumnStrip;
class ColumnView;

// Refers to a row, also after its column is reloaded; invalid once the row is removed.
using BrowserRow = QPersistentModelIndex;

// Shows folders in columns: choosing a folder opens the next column to the right, choosing anything else
// closes the columns to the right. Several rows can be selected in the last column. Columns count from 0 on
// the left, which always exists. A column that does not exist, such as -1, has no rows, and operations on it
// do nothing.
//
// Main thread only. Any function may be called while the delegate fills a column; see ColumnBrowserDelegate.
class ColumnBrowser : public QScrollArea {
    Q_OBJECT
public:
    explicit ColumnBrowser(QWidget* parent = nullptr);

    // No column is filled before the first reload.
    void setDelegate(const ColumnBrowserDelegate& delegate) { delegate_ = delegate.handle(); }
    // For screen readers; the other columns are named after their folders.
    void setTitle(const QString& title);
    // The text of the first column when it was filled and has no rows.
    void setEmptyText(const QString& text);

    [[nodiscard]] int lastColumn() const { return static_cast<int>(columns_.size()) - 1; }
    // Fills the column again and applies the differences: remaining rows keep their selection and, where
    // possible, their position on the screen; the columns to the right stay while their folder exists and is
    // selected.
    void reloadColumn(int column);

    [[nodiscard]] int rowCount(int column) const;
    // Null when it does not exist. Valid until the next change.
    [[nodiscard]] const KelvaneBrowserCell* cell(int column, int row) const;
    [[nodiscard]] const KelvaneBrowserCell* cell(const BrowserRow& row) const;
    [[nodiscard]] BrowserRow rowAt(int column, int row) const;
    // Updates the row's bullet, image and state, and enables or disables it. Ignored when the row has been
    // removed.
    void setCell(const BrowserRow& row, const KelvaneBrowserCell& cell);

    // The first selected cell, or null.
    [[nodiscard]] const KelvaneBrowserCell* selectedCell(int column) const;
    // Returns the paths selected in the last column with a selection, from top to bottom.
    [[nodiscard]] std::vector<std::string> selectedFilePaths() const;

    [[nodiscard]] int columnWidth(int column) const;
    void setColumnWidth(int column, int width);
    // Null when it does not exist.
    [[nodiscard]] QListView* columnView(int column) const;

signals:
    // The user has made a choice: emitted once per choice, after the columns were updated. Never emitted for
    // a reload.
    void chosen();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    struct Column {
        ColumnView* view;
        BrowserRow folder; // the folder whose contents the column shows, a row of the previous column
        int fillsBegun = 0;
        int fillShown = 0;
    };

    [[nodiscard]] bool has(int column) const { return column >= 0 && column <= lastColumn(); }
    [[nodiscard]] Column& at(int column) { return columns_.at(static_cast<std::size_t>(column)); }
    // Null when it does not exist.
    [[nodiscard]] ColumnView* view(int column) const;
    // -1 when it has been closed.
    [[nodiscard]] int numberOf(const ColumnView* column) const;

    void append(const QModelIndex& folder);
    void closeAfter(int column);
    void layOut();
    void reveal(int column);
    void setActive(ColumnView& column);
    void choose(ColumnView& column);
    void followChoice(int column);
    void goLeft(ColumnView& column);
    void goRight(ColumnView& column);

    std::weak_ptr<ColumnBrowserDelegate> delegate_;
    ColumnStrip* const strip_;
    std::vector<Column> columns_;
};

} // namespace kelvane
