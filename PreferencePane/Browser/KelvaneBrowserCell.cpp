#include "PreferencePane/Browser/KelvaneBrowserCell.h"

#include "PreferencePane/Services/FormTexts.h"

#include <QPainter>
#include <QStyleOptionViewItem>

namespace kelvane {
namespace {

constexpr qreal dimmed = 0.4; // opacity

// In logical pixels.
constexpr int iconExtent = 16;
constexpr int largestBullet = 16;
constexpr int gapBeforeIcon = 4;
constexpr int gapBeforeTitle = 6;
constexpr int titleStart = gapBeforeIcon + iconExtent + gapBeforeTitle;

bool isHighlighted(const QStyleOptionViewItem& look) {
    return look.state.testFlag(QStyle::State_Selected);
}

} // namespace

QString KelvaneBrowserCell::shownTitle() const {
    return oneLine(title_);
}

QString KelvaneBrowserCell::toolTip(const QRect& frame, const QStyleOptionViewItem& look) const {
    const QString title = shownTitle();
    const bool fits = look.fontMetrics.horizontalAdvance(title) <= titleRect(frame).width();
    const QString state = QString::fromStdString(stateText_);
    return fits ? state : state.isEmpty() ? title : title + '\n' + state;
}

QSize KelvaneBrowserCell::bulletSize() const {
    return bulletImage_.isNull() ? QSize(0, 0) : bulletImage_.actualSize(QSize(largestBullet, largestBullet));
}

void KelvaneBrowserCell::drawInteriorWithFrame(const QRect& frame, QPainter& painter,
                                               const QStyleOptionViewItem& look) const {
    if (!bulletImage_.isNull())
        drawBullet(frame, painter, look);
    drawIconAndTitle(frame.adjusted(bulletSize().width(), 0, 0, 0), painter, look);
}

QRect KelvaneBrowserCell::titleRect(const QRect& frame) const {
    return frame.adjusted(bulletSize().width() + titleStart, 0, 0, 0);
}

// Drawn in its own colours, which carry its meaning: the toolkit would tint it on a selected row.
void KelvaneBrowserCell::drawBullet(const QRect& frame, QPainter& painter,
                                    const QStyleOptionViewItem& look) const {
    const QRect place(frame.topLeft(), bulletSize());
    painter.fillRect(place, look.palette.brush(isHighlighted(look) ? QPalette::Highlight : QPalette::Base));
    painter.drawPixmap(
        place, bulletImage_.pixmap(place.size(), painter.device()->devicePixelRatioF(), QIcon::Normal));
}

void KelvaneBrowserCell::drawIconAndTitle(const QRect& frame, QPainter& painter,
                                          const QStyleOptionViewItem& look) const {
    const QRect icon(frame.left() + gapBeforeIcon, frame.center().y() - (iconExtent - 1) / 2, iconExtent,
                     iconExtent);
    // The toolkit's disabled icons are too bright on a dark background.
    painter.setOpacity(isEnabled_ ? 1 : dimmed);
    image_.paint(&painter, icon);
    painter.setOpacity(1);

    const QRect place = frame.adjusted(titleStart, 0, 0, 0);
    const QPalette::ColorGroup group = isEnabled_ ? look.palette.currentColorGroup() : QPalette::Disabled;
    painter.setFont(look.font);
    painter.setPen(
        look.palette.color(group, isHighlighted(look) ? QPalette::HighlightedText : QPalette::Text));
    painter.drawText(place, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine | Qt::TextDontClip,
                     look.fontMetrics.elidedText(shownTitle(), Qt::ElideMiddle, place.width()));
}

bool showsTheSame(const KelvaneBrowserCell& one, const KelvaneBrowserCell& other) {
    return one.title() == other.title() && one.getFilePath() == other.getFilePath() &&
           one.stateText() == other.stateText() && one.isLeaf() == other.isLeaf() &&
           one.isEnabled() == other.isEnabled() &&
           one.bulletImage().cacheKey() == other.bulletImage().cacheKey();
}

} // namespace kelvane
