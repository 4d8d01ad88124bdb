#include "PreferencePane/Services/OneLineLabel.h"

#include "PreferencePane/Services/FormTexts.h"

#include <QEvent>
#include <QPainter>
#include <QStyle>
#include <QTextDocument>

namespace kelvane {
namespace {

constexpr int fewestCharacters = 10;

} // namespace

OneLineLabel::OneLineLabel(QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
}

QSize OneLineLabel::minimumSizeHint() const {
    const QSize whole = sizeHint();
    return {std::min(whole.width(), fontMetrics().averageCharWidth() * fewestCharacters), whole.height()};
}

QString OneLineLabel::shownText() const {
    return fontMetrics().elidedText(oneLine(text().toStdString()), Qt::ElideMiddle, contentsRect().width());
}

bool OneLineLabel::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip && !keepsToolTip_)
        setToolTip(shownText() == text() ? QString() : plainToolTip(text()));
    return QLabel::event(event);
}

void OneLineLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    const auto aligned = QStyle::visualAlignment(layoutDirection(), alignment()).toInt();
    style()->drawItemText(&painter, contentsRect(), static_cast<int>(aligned), palette(), isEnabled(),
                          shownText(), foregroundRole());
}

QString plainToolTip(const QString& text) {
    return text.isEmpty() ? QString() : Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal);
}

} // namespace kelvane
