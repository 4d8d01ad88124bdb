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

// A row that is found again when its column is reloaded; invalid once the row has gone.
using BrowserRow = QPersistentModelIndex;

// Folders in columns: choosing one opens the next column to the right, choosing anything else closes those to
// the right. Several rows can be chosen in the last column. Columns count from 0 on the left, which is always
// there; one that is not there, such as -1, has no rows, and what is done to it does nothing.
//
// Main thread only. Any function may be called while the delegate fills a column; see there.
class ColumnBrowser : public QScrollArea {
    Q_OBJECT
public:
    explicit ColumnBrowser(QWidget* parent = nullptr);

    // Nothing is filled before the first reload.
    void setDelegate(const ColumnBrowserDelegate& delegate) { delegate_ = delegate.handle(); }
    // For screen readers; further columns are called by their folders.
    void setTitle(const QString& title);
    // What the first column says when it has been filled and has no rows.
    void setEmptyText(const QString& text);

    [[nodiscard]] int lastColumn() const { return static_cast<int>(columns_.size()) - 1; }
    // Fills it anew and changes what is new: rows that stay keep their selection and, as far as they can,
    // their place on the screen; the columns to the right stay while their folder is there and selected.
    void reloadColumn(int column);

    [[nodiscard]] int rowCount(int column) const;
    // Null when it is not there. Good until something changes.
    [[nodiscard]] const KelvaneBrowserCell* cell(int column, int row) const;
    [[nodiscard]] const KelvaneBrowserCell* cell(const BrowserRow& row) const;
    [[nodiscard]] BrowserRow rowAt(int column, int row) const;
    // What is new of bullet, image, state and being enabled shows at once. Ignored when the row has gone.
    void setCell(const BrowserRow& row, const KelvaneBrowserCell& cell);

    // Of several the first, null when there is none.
    [[nodiscard]] const KelvaneBrowserCell* selectedCell(int column) const;
    // Of the last column that has a selection, from the top.
    [[nodiscard]] std::vector<std::string> selectedFilePaths() const;

    [[nodiscard]] int columnWidth(int column) const;
    void setColumnWidth(int column, int width);
    // Null when it is not there.
    [[nodiscard]] QListView* columnView(int column) const;

signals:
    // A person has chosen: once for each choice, with the columns already following it. Never for a reload.
    void chosen();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    struct Column {
        ColumnView* view;
        BrowserRow folder; // whose contents it shows, in the column before it
        int fillsBegun = 0;
        int fillShown = 0;
    };

    [[nodiscard]] bool has(int column) const { return column >= 0 && column <= lastColumn(); }
    [[nodiscard]] Column& at(int column) { return columns_.at(static_cast<std::size_t>(column)); }
    // Null when it is not there.
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
