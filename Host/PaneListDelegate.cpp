#include "Host/PaneListDelegate.h"

#include <QPainter>
#include <algorithm>

namespace kelvane::host {
namespace {

constexpr int margin = 8;
constexpr int smallestHeight = 36;
constexpr qreal corner = 6;

} // namespace

void PaneListDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
    QStyleOptionViewItem item(option);
    initStyleOption(&item, index);
    const bool isSelected = item.state.testFlag(QStyle::State_Selected);
    const bool hasKeyboard = item.state.testFlag(QStyle::State_HasFocus);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    if (isSelected || item.state.testFlag(QStyle::State_MouseOver)) {
        painter->setBrush(
            item.palette.brush(isSelected && hasKeyboard ? QPalette::Highlight : QPalette::Midlight));
        painter->drawRoundedRect(QRectF(item.rect), corner, corner);
    }
    const QRect inside = item.rect.adjusted(margin, 0, -margin, 0);
    QRect picture(inside.topLeft(), QSize(item.decorationSize.width(), inside.height()));
    QRect text = inside.adjusted(picture.width() + margin, 0, 0, 0);
    picture = QStyle::visualRect(item.direction, inside, picture);
    text = QStyle::visualRect(item.direction, inside, text);
    item.icon.paint(painter, picture);
    painter->setPen(
        item.palette.color(isSelected && hasKeyboard ? QPalette::HighlightedText : QPalette::Text));
    painter->setFont(item.font);
    painter->drawText(
        text, static_cast<int>(QStyle::visualAlignment(item.direction, Qt::AlignLeft)) | Qt::AlignVCenter,
        item.fontMetrics.elidedText(item.text, Qt::ElideRight, text.width()));
    painter->restore();
}

QSize PaneListDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const QSize size = QStyledItemDelegate::sizeHint(option, index);
    return {size.width(), std::max(size.height() + margin, smallestHeight)};
}

} // namespace kelvane::host
