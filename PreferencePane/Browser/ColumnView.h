#pragma once

#include "PreferencePane/Browser/ColumnModel.h"

#include <QListView>
#include <QPersistentModelIndex>
#include <vector>

namespace kelvane {

// One column of a browser. It tells apart what a person chooses and what changes by itself: `chosen` comes
// once for each choice by mouse, keyboard or screen reader, after Qt has done with the event, so that whoever
// hears it may do anything, and never for what these functions do.
class ColumnView : public QListView {
    Q_OBJECT
public:
    ColumnView(ColumnModel::ImageSource imageSource, QWidget* parent);

    [[nodiscard]] const ColumnModel& rows() const { return *model_; }
    // What is seen stays where it is, as far as its rows do.
    void setRows(BrowserRows cells);
    void setCell(int row, const KelvaneBrowserCell& cell);
    // What it says, also to screen readers, once it has been filled and has no rows.
    void setEmptyText(const QString& text) { emptyText_ = text; }

    // From the top.
    [[nodiscard]] std::vector<int> selectedRows() const;
    [[nodiscard]] bool isSelected(const QModelIndex& index) const;
    // The one row that is selected, if it is no leaf.
    [[nodiscard]] QModelIndex selectedFolder() const;
    void deselect();
    // Without saying so.
    void select(const QModelIndex& index);
    // The row to begin with: where the keyboard was last, else the first; it is enabled, or invalid.
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
    bool isHandlingInput_ = false; // a key, or the mouse from its press to its release
    bool hasChoice_ = false;
};

} // namespace kelvane
