#include "Host/AfterPaint.h"

#include <QEvent>
#include <QWidget>
#include <utility>

namespace kelvane::host {
namespace {

constexpr std::chrono::milliseconds unpaintedTimeout{500};

} // namespace

AfterPaint::AfterPaint(QWidget& widget, MainLoop& loop, MainLoop::Task task)
    : loop_(loop), task_(std::move(task)) {
    widget.installEventFilter(this);
    widget.update();
    timer_ = loop_.schedule(unpaintedTimeout, MainLoop::Repeat::Once, [this] { run(); });
}

bool AfterPaint::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint) {
        watched->removeEventFilter(this);
        // The widget is on the screen when this event has been handled.
        timer_ = loop_.schedule(std::chrono::milliseconds(0), MainLoop::Repeat::Once, [this] { run(); });
    }
    return false;
}

// The task may destroy this object or paint the widget again.
void AfterPaint::run() {
    if (const MainLoop::Task task = std::exchange(task_, nullptr))
        task();
}

} // namespace kelvane::host
