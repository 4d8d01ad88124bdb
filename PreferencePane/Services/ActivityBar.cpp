#include "PreferencePane/Services/ActivityBar.h"

#include <QLinearGradient>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionProgressBar>
#include <QTimerEvent>
#include <utility>

namespace kelvane {
namespace {

constexpr int framesOfWhatIsDone = 16;
constexpr int framesOfTheWholeBar = 32;
constexpr int frameMilliseconds = 70;
constexpr int restMilliseconds = 3000;
constexpr double lightWidth = 0.35; // share of the bar's width
constexpr int inset = 2;            // in logical pixels

QColor withAlpha(QColor color, int alpha) {
    color.setAlpha(alpha);
    return color;
}

} // namespace

void ActivityBar::startAnimation() {
    isAnimating_ = true;
    if (!timer_.isActive())
        scheduleFrame();
}

void ActivityBar::stopAnimation() {
    isAnimating_ = false;
    frame_ = 0;
    timer_.stop();
    update();
}

void ActivityBar::setIndeterminate(bool isIndeterminate) {
    if (std::exchange(isIndeterminate_, isIndeterminate) == isIndeterminate)
        return;
    frame_ = 0;
    timer_.stop();
    scheduleFrame();
    update();
}

int ActivityBar::frameCount() const {
    return isIndeterminate_ ? framesOfTheWholeBar : framesOfWhatIsDone;
}

// Respects the desktop's setting for no animations.
void ActivityBar::scheduleFrame() {
    const bool isWanted = style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, this) > 0;
    if (isAnimating_ && isVisible() && isWanted)
        timer_.start(frame_ == 0 && !isIndeterminate_ ? restMilliseconds : frameMilliseconds, this);
}

void ActivityBar::timerEvent(QTimerEvent* event) {
    if (event->timerId() != timer_.timerId())
        return QProgressBar::timerEvent(event);
    frame_ = (frame_ + 1) % frameCount();
    scheduleFrame();
    update();
}

void ActivityBar::initStyleOption(QStyleOptionProgressBar* option) const {
    QProgressBar::initStyleOption(option);
    if (isIndeterminate_)
        option->progress = option->minimum;
}

void ActivityBar::paintEvent(QPaintEvent* event) {
    QProgressBar::paintEvent(event);
    QStyleOptionProgressBar option;
    initStyleOption(&option);
    QRectF lit = style()->subElementRect(QStyle::SE_ProgressBarContents, &option, this);
    const QColor color = isIndeterminate_ ? palette().color(QPalette::Highlight) : QColor(Qt::white);
    QPainter painter(this);
    if (isIndeterminate_) {
        lit.adjust(inset, inset, -inset, -inset);
        painter.fillRect(lit, withAlpha(color, 50));
    } else {
        lit.setWidth(lit.width() * value() / std::max(1, maximum()));
    }
    if (frame_ == 0)
        return;
    const double light = lit.width() * lightWidth;
    const double middle = lit.left() - light + (lit.width() + 2 * light) * frame_ / frameCount();
    QLinearGradient gradient(middle - light, 0, middle + light, 0);
    gradient.setColorAt(0, withAlpha(color, 0));
    gradient.setColorAt(0.5, withAlpha(color, isIndeterminate_ ? 190 : 90));
    gradient.setColorAt(1, withAlpha(color, 0));
    painter.fillRect(lit, gradient);
}

void ActivityBar::showEvent(QShowEvent* event) {
    QProgressBar::showEvent(event);
    scheduleFrame();
}

void ActivityBar::hideEvent(QHideEvent* event) {
    QProgressBar::hideEvent(event);
    frame_ = 0;
    timer_.stop();
}

} // namespace kelvane
