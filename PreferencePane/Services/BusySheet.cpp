#include "PreferencePane/Services/BusySheet.h"

#include "PreferencePane/Services/PaneServices.h"
#include "PreferencePane/Services/Sheet.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDialog>
#include <QEventLoop>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace kelvane {
namespace {

constexpr std::chrono::milliseconds stepLimit(20); // how long painting may be delayed
constexpr std::chrono::milliseconds longestFreeze(300);
constexpr int margin = 24;
constexpr int barWidth = 280;

} // namespace

class BusySheet::Sheet : public QDialog {
public:
    Sheet(QWidget& parent, const QString& message, const QString& cancel)
        : QDialog(parent.window(), Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint),
          bar_(new QProgressBar(this)),
          cancel_(new QPushButton(cancel, this)) {
        setWindowTitle(sheetTitle(&parent));
        auto* const label = new QLabel(message, this);
        label->setTextFormat(Qt::PlainText);
        bar_->setRange(0, 0);
        bar_->setMinimumWidth(barWidth);
        bar_->setAccessibleName(message);
        connect(cancel_, &QAbstractButton::clicked, this, &QDialog::reject);
        auto* const column = new QVBoxLayout(this);
        column->setContentsMargins(margin, margin, margin, margin);
        column->setSpacing(margin / 2);
        column->addWidget(label);
        column->addWidget(bar_);
        column->addWidget(cancel_, 0, Qt::AlignRight);
        setModal(true); // for all windows: input to them is ignored meanwhile
    }
    // The sheet stays until the work has stopped.
    void reject() override {
        isCancelled_ = true;
        cancel_->setEnabled(false);
    }
    [[nodiscard]] bool isCancelled() const { return isCancelled_; }
    [[nodiscard]] QProgressBar& bar() const { return *bar_; }

private:
    QProgressBar* const bar_;
    QPushButton* const cancel_;
    bool isCancelled_ = false;
};

BusySheet::BusySheet(QWidget& parent, MainLoop& mainLoop, const QString& message, const QString& cancel)
    : hold_(mainLoop.hold()),
      focused_(parent.window()->focusWidget()),
      sheet_(new Sheet(parent, message, cancel)) {
    // Screen readers press buttons even behind a modal sheet.
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

BusySheet::End BusySheet::run(const Step& step) const {
    QEventLoop loop;
    QTimer next;
    End end = End::ApplicationEnds;
    QObject::connect(&next, &QTimer::timeout, &loop, [&] {
        if (sheet_->isCancelled())
            end = End::Cancelled;
        else if (step(stepLimit))
            end = End::Finished;
        else
            return;
        loop.quit();
    });
    next.start(0);
    loop.exec();
    return end;
}

void BusySheet::showProgress(std::size_t done, std::size_t total) const {
    sheet_->bar().setRange(0, static_cast<int>(total));
    sheet_->bar().setValue(static_cast<int>(done));
}

std::size_t workShowingProgress(PaneServices& pane, const std::string& message, std::size_t count,
                                const std::function<bool(std::size_t)>& work) {
    std::size_t done = 0;
    bool goesOn = true;
    // Returns true when everything is done or `work` has returned false.
    const auto workFor = [&](std::chrono::milliseconds limit) {
        const QDeadlineTimer deadline(limit);
        while (done < count && goesOn && !deadline.hasExpired())
            if ((goesOn = work(done)))
                ++done;
        return done == count || !goesOn;
    };
    if (workFor(longestFreeze))
        return done;
    const BusySheet busy(*pane.mainView(), *pane.mainLoop(), QString::fromStdString(message),
                         pane.qtext("Cancel"));
    busy.showProgress(done, count);
    static_cast<void>(busy.run([&](std::chrono::milliseconds atMost) {
        const bool isOver = workFor(atMost);
        busy.showProgress(done, count);
        return isOver;
    }));
    return done;
}

} // namespace kelvane
