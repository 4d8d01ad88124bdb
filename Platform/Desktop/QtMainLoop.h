#pragma once

#include "Foundation/MainLoop.h"

#include <deque>
#include <memory>
#include <mutex>

namespace kelvane {

// The main loop of programs with a window: posted tasks and timers on Qt's own event loop, nested ones
// included.
//
// Belongs to the thread that makes it, which needs a Qt application by the time it runs its event loop;
// `post` is for any thread. Each task is one turn of the event loop, so that windows are painted and clicks
// heard between them. What nobody has run when the loop goes is dropped; a timer's token may outlive it.
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
