#pragma once

#include <QStyledItemDelegate>

namespace kelvane::host {

// One row of the list of panes: icon and name, on a rounded background when selected. The background is
// stronger while the list has the focus.
class PaneListDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace kelvane::host
