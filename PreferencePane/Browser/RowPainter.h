#pragma once

#include <QStyledItemDelegate>

namespace kelvane {

// Paints the rows of a ColumnView: the cell, an arrow for a folder, and the selection, in full colour only in
// the column with the focus. All rows have the same height.
class RowPainter : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;
};

} // namespace kelvane
