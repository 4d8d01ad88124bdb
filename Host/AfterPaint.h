#pragma once

#include "Foundation/MainLoop.h"

#include <QObject>

class QWidget;

namespace kelvane::host {

// Runs a task once, from the event loop, after the next paint of the widget, or after 0.5 s when it is not
// painted, for example because it is minimised. The task never runs after this object is destroyed.
class AfterPaint : public QObject {
public:
    AfterPaint(QWidget& widget, MainLoop& loop, MainLoop::Task task);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void run();

    MainLoop& loop_;
    Timer timer_;
    MainLoop::Task task_;
};

} // namespace kelvane::host
