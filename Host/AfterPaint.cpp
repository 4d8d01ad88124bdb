#include "Host/AfterPaint.h"

#include <QEvent>
#include <QWidget>
#include <utility>

namespace kelvane::host {
namespace {

constexpr std::chrono::milliseconds unpaintedPatience{500};

} // namespace

AfterPaint::AfterPaint(QWidget& widget, MainLoop& loop, MainLoop::Task task)
    : loop_(loop), task_(std::move(task)) {
    widget.installEventFilter(this);
    widget.update();
    timer_ = loop_.schedule(unpaintedPatience, MainLoop::Repeat::Once, [this] { run(); });
}

bool AfterPaint::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint) {
        watched->removeEventFilter(this);
        // The picture is on the screen when this event is through.
        timer_ = loop_.schedule(std::chrono::milliseconds(0), MainLoop::Repeat::Once, [this] { run(); });
    }
    return false;
}

// The task may end this object, and paint the widget once more.
void AfterPaint::run() {
    if (const MainLoop::Task task = std::exchange(task_, nullptr))
        task();
}

} // namespace kelvane::host
