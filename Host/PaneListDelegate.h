#pragma once

#include <QStyledItemDelegate>

namespace kelvane::host {

// One row of the list of panes: its icon and its name, on a rounded ground when it is selected. The ground is
// strong while the list has the keyboard.
class PaneListDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace kelvane::host
