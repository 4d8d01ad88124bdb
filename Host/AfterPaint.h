#pragma once

#include "Foundation/MainLoop.h"

#include <QObject>

class QWidget;

namespace kelvane::host {

// Runs a task once, from the event loop, after the widget has been painted the next time; also when it is not
// painted for a while, because it is minimised, for example. Never after this object has gone.
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
