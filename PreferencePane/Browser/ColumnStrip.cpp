#include "PreferencePane/Browser/ColumnStrip.h"

#include <QMouseEvent>
#include <QPainter>
#include <QSplitterHandle>
#include <algorithm>

namespace kelvane {
namespace {

// In logical pixels.
constexpr int defaultWidth = 191; // three columns fit into a window of the default size
constexpr int smallestWidth = 72;
constexpr int largestWidth = 2000;

constexpr qreal lineOpacity = 0.25;

} // namespace

// The edge at the right of a column; dragging it moves the following columns and does not resize them.
class ColumnStrip::Edge : public QSplitterHandle {
public:
    explicit Edge(ColumnStrip& strip) : QSplitterHandle(Qt::Horizontal, &strip), strip_(strip) {}

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setOpacity(lineOpacity);
        painter.fillRect(contentsRect(), palette().color(QPalette::Text));
    }
    void mousePressEvent(QMouseEvent* event) override {
        grabbedAt_ = event->globalPosition().toPoint().x();
        widthThen_ = strip_.columnWidth(column());
    }
    void mouseMoveEvent(QMouseEvent* event) override {
        strip_.setColumnWidth(column(), widthThen_ + event->globalPosition().toPoint().x() - grabbedAt_);
    }
    void mouseReleaseEvent(QMouseEvent*) override {}

private:
    // A splitter handle has the index of the widget after it.
    [[nodiscard]] int column() const {
        int number = 0;
        while (number < strip_.count() && strip_.handle(number) != this)
            ++number;
        return number - 1;
    }

    ColumnStrip& strip_;
    int grabbedAt_ = 0;
    int widthThen_ = 0;
};

ColumnStrip::ColumnStrip(QWidget* parent) : QSplitter(Qt::Horizontal, parent) {
    setChildrenCollapsible(false);
    setHandleWidth(1);
    auto* const rest = new QWidget;
    rest->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    addWidget(rest);
}

void ColumnStrip::append(QWidget& column) {
    const int place = columnCount();
    column.setFixedWidth(columnWidth(place));
    insertWidget(place, &column);
    column.show();
    // Screen readers follow this order; the edges stay on top, where the mouse can reach them.
    column.raise();
    for (int edge = 1; edge < count(); ++edge)
        handle(edge)->raise();
    emit neededWidthChanged();
}

void ColumnStrip::removeLast(QWidget& newParent) {
    widget(columnCount() - 1)->setParent(&newParent);
    emit neededWidthChanged();
}

int ColumnStrip::columnWidth(int column) const {
    const auto place = static_cast<std::size_t>(column);
    return place < widths_.size() ? widths_[place] : defaultWidth;
}

void ColumnStrip::setColumnWidth(int column, int width) {
    const auto place = static_cast<std::size_t>(column);
    if (place >= widths_.size())
        widths_.resize(place + 1, defaultWidth);
    widths_[place] = std::clamp(width, smallestWidth, largestWidth);
    if (column < columnCount())
        widget(column)->setFixedWidth(widths_[place]);
    emit neededWidthChanged();
}

int ColumnStrip::neededWidth() const {
    int width = 0;
    for (int column = 0; column < columnCount(); ++column)
        width += columnWidth(column) + handleWidth();
    return width;
}

QSplitterHandle* ColumnStrip::createHandle() {
    return new Edge(*this);
}

} // namespace kelvane
