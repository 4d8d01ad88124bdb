#include "PreferencePane/Help/BusySheet.h"

#include <QApplication>
#include <QDialog>
#include <QEventLoop>
#include <QLabel>
#include <QProgressBar>
#include <QTimer>
#include <QVBoxLayout>

namespace kelvane {
namespace {

constexpr std::chrono::milliseconds stepLimit(20); // what a window may wait to be painted
constexpr int margin = 24;
constexpr int barWidth = 280;

class Sheet : public QDialog {
public:
    Sheet(QWidget* window, const QString& message)
        : QDialog(window, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint) {
        setWindowTitle(message);
        auto* const label = new QLabel(message, this);
        label->setTextFormat(Qt::PlainText);
        auto* const bar = new QProgressBar(this);
        bar->setRange(0, 0);
        bar->setMinimumWidth(barWidth);
        bar->setAccessibleName(message);
        auto* const column = new QVBoxLayout(this);
        column->setContentsMargins(margin, margin, margin, margin);
        column->setSpacing(margin / 2);
        column->addWidget(label);
        column->addWidget(bar);
        setCursor(Qt::BusyCursor);
        setModal(true); // of all windows: what a person does to them meanwhile counts for nothing
    }
    void reject() override {} // it ends with the work
};

} // namespace

BusySheet::BusySheet(QWidget& window, MainLoop& mainLoop, const QString& message)
    : hold_(mainLoop.hold()), focused_(window.focusWidget()), sheet_(new Sheet(&window, message)) {
    // Screen readers press buttons without asking whether a sheet is before them.
    for (QWidget* const other : QApplication::topLevelWidgets()) {
        if (other == sheet_ || !other->isEnabled())
            continue;
        other->setEnabled(false);
        disabled_.emplace_back(other);
    }
    sheet_->setEnabled(true);
    sheet_->show();
}

BusySheet::~BusySheet() {
    delete sheet_.data();
    for (const auto& other : disabled_)
        if (other)
            other->setEnabled(true);
    if (focused_)
        focused_->setFocus();
}

bool BusySheet::run(const Step& step) const {
    QEventLoop loop;
    QTimer next;
    bool isOver = false;
    QObject::connect(&next, &QTimer::timeout, &loop, [&] {
        isOver = step(stepLimit);
        if (isOver)
            loop.quit();
    });
    next.start(0);
    loop.exec();
    return isOver;
}

} // namespace kelvane
