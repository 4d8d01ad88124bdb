#include "Host/SettingsWindow.h"

#include "Host/PaneListDelegate.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QPainter>
#include <QVBoxLayout>

namespace kelvane::host {
namespace {

constexpr int sideWidth = 184;
constexpr int sideMargin = 8;
constexpr int paneIconSize = 24;
constexpr int pageMargin = 16;
constexpr qreal noticeCorner = 6;
constexpr QSize usualSize(860, 600);

void dress(QListWidget& list) {
    list.setAccessibleName(SettingsWindow::tr("Panes"));
    list.setFrameShape(QFrame::NoFrame);
    list.setIconSize({paneIconSize, paneIconSize});
    list.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list.setUniformItemSizes(true);
    list.setMouseTracking(true);
    list.setSpacing(1);
    list.setItemDelegate(new PaneListDelegate(&list));
}

// A notice that informs without looking like a warning.
class Notice : public QLabel {
public:
    explicit Notice(QWidget* parent) : QLabel(parent) {
        setTextFormat(Qt::PlainText);
        setWordWrap(true);
        setMargin(pageMargin / 2);
        hide();
    }

protected:
    void paintEvent(QPaintEvent* event) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(palette().brush(QPalette::Midlight));
        painter.drawRoundedRect(QRectF(rect()), noticeCorner, noticeCorner);
        QLabel::paintEvent(event);
    }
};

QWidget* sideOf(QListWidget* list) {
    auto* const side = new QWidget(list->parentWidget());
    side->setFixedWidth(sideWidth);
    side->setAutoFillBackground(true);
    side->setBackgroundRole(QPalette::Base);
    auto* const column = new QVBoxLayout(side);
    column->setContentsMargins(sideMargin, sideMargin, sideMargin, sideMargin);
    column->addWidget(list);
    return side;
}

QWidget* lineBeside(QWidget* parent) {
    auto* const line = new QWidget(parent);
    line->setFixedWidth(1);
    line->setAutoFillBackground(true);
    line->setBackgroundRole(QPalette::Mid);
    return line;
}

} // namespace

SettingsWindow::SettingsWindow()
    : list_(new QListWidget(this)),
      notice_(new Notice(this)),
      area_(new QWidget(this)),
      pages_(new QStackedWidget(area_)),
      nothing_(new QWidget(pages_)),
      message_(new MessagePage(pages_)) {
    setWindowTitle(tr("Kelvane Settings"));
    dress(*list_);
    pages_->addWidget(nothing_);
    pages_->addWidget(message_);

    auto* const areaColumn = new QVBoxLayout(area_);
    areaColumn->setContentsMargins(pageMargin, pageMargin, pageMargin, pageMargin);
    areaColumn->setSpacing(pageMargin);
    areaColumn->addWidget(notice_);
    areaColumn->addWidget(pages_, 1);
    auto* const whole = new QWidget(this);
    auto* const row = new QHBoxLayout(whole);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    row->addWidget(sideOf(list_));
    row->addWidget(lineBeside(whole));
    row->addWidget(area_, 1);
    setCentralWidget(whole);
    resize(usualSize);

    connect(list_, &QListWidget::currentRowChanged, this, &SettingsWindow::paneChosen);
}

void SettingsWindow::addPane(const QIcon& icon, const QString& title) {
    auto* const item = new QListWidgetItem(icon, title, list_);
    item->setToolTip(title);
}

void SettingsWindow::setNotice(const QString& text) {
    notice_->setText(text);
    notice_->setVisible(!text.isEmpty());
}

void SettingsWindow::showMessage(const QString& title, const QString& problem, const QString& path) {
    message_->show(title, problem, path);
    pages_->setCurrentWidget(message_);
}

void SettingsWindow::showPane(QWidget* view) {
    if (pages_->indexOf(view) < 0)
        pages_->addWidget(view);
    pages_->setCurrentWidget(view);
}

void SettingsWindow::closeEvent(QCloseEvent* event) {
    Q_EMIT closing();
    event->accept();
}

} // namespace kelvane::host
