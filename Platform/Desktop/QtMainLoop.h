#pragma once

#include "Foundation/MainLoop.h"

#include <deque>
#include <memory>
#include <mutex>

namespace kelvane {

// The main loop of programs with a window: posted tasks and timers on Qt's event loop, including nested
// loops.
//
// Belongs to the thread that creates it, which needs a Qt application when it runs its event loop; any thread
// may call `post`. Each task is one turn of the event loop, so that the window paints and reacts between
// tasks. Tasks that have not run when the loop is destroyed are dropped; a timer's token may outlive the
// loop.
class QtMainLoop : public MainLoop {
public:
    QtMainLoop();
    ~QtMainLoop() override;
    QtMainLoop(const QtMainLoop&) = delete;
    QtMainLoop& operator=(const QtMainLoop&) = delete;

    void post(Task task) override;
    Timer schedule(std::chrono::milliseconds interval, Repeat repeat, Task task) override;
    [[nodiscard]] std::shared_ptr<void> hold() override;

private:
    class Receiver;
    struct TimerEntry;

    [[nodiscard]] Task takePosted();

    std::mutex mutex_; // guards the inbox
    std::deque<Task> inbox_;
    const std::shared_ptr<Receiver> receiver_;
};

} // namespace kelvane
