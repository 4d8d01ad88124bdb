#pragma once

#include "PreferencePane/Browser/ColumnModel.h"

#include <QListView>
#include <QPersistentModelIndex>
#include <vector>

namespace kelvane {

// One column of a browser. It distinguishes choices by the user from other changes: `chosen` is emitted once
// for each choice by mouse, keyboard or screen reader, after Qt has handled the event, so that receivers may
// do anything. It is never emitted for changes made by the functions below.
class ColumnView : public QListView {
    Q_OBJECT
public:
    ColumnView(ColumnModel::ImageSource imageSource, QWidget* parent);

    [[nodiscard]] const ColumnModel& rows() const { return *model_; }
    // Visible rows stay in place where possible.
    void setRows(BrowserRows cells);
    void setCell(int row, const KelvaneBrowserCell& cell);
    // The text of an empty column after it was filled, also for screen readers.
    void setEmptyText(const QString& text) { emptyText_ = text; }

    // Returns the selected rows from top to bottom.
    [[nodiscard]] std::vector<int> selectedRows() const;
    [[nodiscard]] bool isSelected(const QModelIndex& index) const;
    // The selected row if there is exactly one and it is not a leaf.
    [[nodiscard]] QModelIndex selectedFolder() const;
    void deselect();
    // Does not emit `chosen`.
    void select(const QModelIndex& index);
    // The row to start with: the current row if it is enabled, otherwise the first enabled one; invalid when
    // there is none.
    [[nodiscard]] QModelIndex startRow() const;

signals:
    void chosen();
    void leftPressed();
    void rightPressed();
    void focused(bool byMouse);

protected:
    void selectionChanged(const QItemSelection& selected, const QItemSelection& deselected) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void reportChoice();
    void scrollBack(const std::vector<std::pair<QPersistentModelIndex, int>>& seen);

    ColumnModel* const model_;
    QString emptyText_;
    bool isQuiet_ = false;
    bool isHandlingInput_ = false; // a key event, or a mouse press until its release
    bool hasChoice_ = false;
};

} // namespace kelvane
