#include "Host/AfterPaint.h"

#include <QEvent>
#include <QWidget>

namespace kelvane::host {
namespace {

constexpr std::chrono::milliseconds unpaintedPatience{500};

} // namespace

AfterPaint::AfterPaint(QWidget& widget, MainLoop& loop, MainLoop::Task task)
    : loop_(loop), task_(std::move(task)) {
    widget.installEventFilter(this);
    widget.update();
    timer_ = loop_.schedule(unpaintedPatience, MainLoop::Repeat::Once, task_);
}

bool AfterPaint::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint) {
        watched->removeEventFilter(this);
        // The picture is on the screen when this event is through.
        timer_ = loop_.schedule(std::chrono::milliseconds(0), MainLoop::Repeat::Once, task_);
    }
    return false;
}

} // namespace kelvane::host
