#include "PreferencePane/Browser/RowPainter.h"

#include "PreferencePane/Browser/ColumnModel.h"

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QPainter>
#include <QTextDocument>
#include <QToolTip>
#include <algorithm>

namespace kelvane {
namespace {

// In logical pixels.
constexpr int smallestRowContent = 16; // an icon or a bullet
constexpr int marginAbove = 2;
constexpr int marginAtSides = 4;
constexpr int arrowSpace = 18;
constexpr qreal arrowHeight = 7;
constexpr qreal arrowStroke = 1.5;

constexpr float shareOfHighlight = 0.28F; // in a column without the focus
constexpr float arrowOpacity = 0.6F;

QColor between(const QColor& one, const QColor& other, float share) {
    const auto mix = [share](float a, float b) { return a + (b - a) * share; };
    return QColor::fromRgbF(mix(one.redF(), other.redF()), mix(one.greenF(), other.greenF()),
                            mix(one.blueF(), other.blueF()));
}

// The style options of the row, with the colours of its column.
QStyleOptionViewItem lookOf(const QStyleOptionViewItem& option) {
    QStyleOptionViewItem look = option;
    const bool hasKeyboard = option.widget->hasFocus();
    look.palette.setCurrentColorGroup(!option.widget->isEnabled() ? QPalette::Disabled
                                      : hasKeyboard               ? QPalette::Active
                                                                  : QPalette::Inactive);
    if (!hasKeyboard) {
        const QColor highlight = look.palette.color(QPalette::Highlight);
        look.palette.setColor(QPalette::Highlight,
                              between(look.palette.color(QPalette::Base), highlight, shareOfHighlight));
        look.palette.setColor(QPalette::HighlightedText, look.palette.color(QPalette::Text));
    }
    return look;
}

// The rectangle in which the cell draws; a bullet is vertically centred.
QRect frameOf(const KelvaneBrowserCell& cell, const QRect& row) {
    QRect frame = row.adjusted(marginAtSides, 0, cell.isLeaf() ? -marginAtSides : -arrowSpace, 0);
    if (const int height = cell.bulletSize().height(); height > 0) {
        frame.setTop(row.top() + (row.height() - height) / 2);
        frame.setHeight(height);
    }
    return frame;
}

void drawArrow(const QRect& row, QPainter& painter, const QColor& color) {
    const QPointF tip(row.right() - arrowSpace / 2.0 + arrowHeight / 4, QRectF(row).center().y());
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(color, arrowStroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawPolyline(QPolygonF({tip - QPointF(arrowHeight / 2, arrowHeight / 2), tip,
                                    tip - QPointF(arrowHeight / 2, -arrowHeight / 2)}));
    painter.restore();
}

QColor arrowColor(const QStyleOptionViewItem& look) {
    if (look.state.testFlag(QStyle::State_Selected))
        return look.palette.color(QPalette::HighlightedText);
    QColor color = look.palette.color(QPalette::Text);
    color.setAlphaF(arrowOpacity);
    return color;
}

// Draws only an outline: the style's focus frame fills the row, and the bullet's background would show on it.
void drawFocus(const QStyleOptionViewItem& look, QPainter& painter) {
    painter.setPen(look.palette.color(QPalette::Highlight));
    painter.drawRect(look.rect.adjusted(0, 0, -1, -1));
}

const ColumnModel& columnOf(const QModelIndex& index) {
    return static_cast<const ColumnModel&>(*index.model());
}

} // namespace

void RowPainter::paint(QPainter* painter, const QStyleOptionViewItem& option,
                       const QModelIndex& index) const {
    const KelvaneBrowserCell& cell = columnOf(index).shownCell(index.row());
    const QStyleOptionViewItem look = lookOf(option);
    const bool isHighlighted = look.state.testFlag(QStyle::State_Selected);
    painter->save();
    painter->setClipRect(option.rect);
    if (isHighlighted)
        painter->fillRect(option.rect, look.palette.brush(QPalette::Highlight));
    else if (look.state.testFlag(QStyle::State_HasFocus))
        drawFocus(look, *painter);
    cell.drawInteriorWithFrame(frameOf(cell, option.rect), *painter, look);
    if (!cell.isLeaf())
        drawArrow(option.rect, *painter, arrowColor(look));
    painter->restore();
}

QSize RowPainter::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    return {1, std::max(smallestRowContent, option.fontMetrics.height()) + 2 * marginAbove};
}

// A file name must never be interpreted as markup.
bool RowPainter::helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                           const QModelIndex& index) {
    if (event->type() != QEvent::ToolTip || !index.isValid())
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    const KelvaneBrowserCell& cell = columnOf(index).cell(index.row());
    QStyleOptionViewItem look = option;
    initStyleOption(&look, index);
    const QString text = cell.toolTip(frameOf(cell, option.rect), look);
    QToolTip::showText(event->globalPos(),
                       text.isEmpty() ? text : Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal), view,
                       option.rect);
    return true;
}

} // namespace kelvane
