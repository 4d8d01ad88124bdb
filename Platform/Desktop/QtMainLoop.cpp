#include "Platform/Desktop/QtMainLoop.h"

#include <QCoreApplication>
#include <QObject>
#include <QTimerEvent>
#include <algorithm>
#include <limits>
#include <map>
#include <utility>
#include <vector>

namespace kelvane {

// The receiver of Qt's events. Timers are ids of this object and not objects of their own, because a task may
// drop the timer that runs it.
class QtMainLoop::Receiver : public QObject {
public:
    explicit Receiver(QtMainLoop& loop) : loop_(loop) {}

    // Callable on any thread.
    void wake() { QCoreApplication::postEvent(this, new QEvent(QEvent::User)); }

    void start(const std::shared_ptr<TimerEntry>& timer, std::chrono::milliseconds interval);
    void stop(int id) {
        killTimer(id);
        timers_.erase(id);
    }
    void hold() { ++holds_; }
    void release();

protected:
    bool event(QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

private:
    void putOff(const std::shared_ptr<TimerEntry>& timer);

    QtMainLoop& loop_;
    std::map<int, std::weak_ptr<TimerEntry>> timers_;
    int holds_ = 0;
    std::vector<std::weak_ptr<TimerEntry>> late_; // timers that came due during a hold
};

struct QtMainLoop::TimerEntry {
    TimerEntry(std::weak_ptr<Receiver> owner, std::chrono::milliseconds period, Repeat repetition, Task work)
        : receiver(std::move(owner)), interval(period), repeat(repetition), task(std::move(work)) {}
    ~TimerEntry() { stop(); }
    TimerEntry(const TimerEntry&) = delete;
    TimerEntry& operator=(const TimerEntry&) = delete;

    // Stops each id only once, because Qt soon reuses it for another timer.
    void stop() {
        const int started = std::exchange(id, 0);
        if (const auto owner = receiver.lock(); owner && started != 0)
            owner->stop(started);
    }

    const std::weak_ptr<Receiver> receiver;
    const std::chrono::milliseconds interval;
    const Repeat repeat;
    const Task task;
    int id = 0;
    bool isLate = false;
};

void QtMainLoop::Receiver::start(const std::shared_ptr<TimerEntry>& timer,
                                 std::chrono::milliseconds interval) {
    constexpr std::chrono::milliseconds longest(std::numeric_limits<int>::max());
    timer->id = startTimer(std::clamp(interval, std::chrono::milliseconds(0), longest));
    timers_[timer->id] = timer;
}

// Stops the Qt timer until the hold ends: otherwise Qt would fire it again and again.
void QtMainLoop::Receiver::putOff(const std::shared_ptr<TimerEntry>& timer) {
    timer->stop();
    timer->isLate = true;
    late_.push_back(timer);
}

void QtMainLoop::Receiver::release() {
    if (--holds_ > 0)
        return;
    for (const auto& late : std::exchange(late_, {}))
        if (const auto timer = late.lock())
            start(timer, std::chrono::milliseconds(0));
    wake(); // for posted tasks whose event was delivered during the hold
}

bool QtMainLoop::Receiver::event(QEvent* event) {
    if (event->type() != QEvent::User)
        return QObject::event(event);
    if (holds_ > 0)
        return true;
    if (const Task task = loop_.takePosted())
        task();
    return true;
}

void QtMainLoop::Receiver::timerEvent(QTimerEvent* event) {
    const auto found = timers_.find(event->timerId());
    // Keeps the timer alive while it runs: a task may drop its own token.
    const auto timer = found != timers_.end() ? found->second.lock() : nullptr;
    if (!timer)
        return;
    if (holds_ > 0)
        return putOff(timer);
    const bool wasLate = std::exchange(timer->isLate, false);
    if (timer->repeat == Repeat::Once || wasLate)
        timer->stop();
    if (timer->repeat == Repeat::Always && wasLate)
        start(timer, timer->interval);
    timer->task();
}

QtMainLoop::QtMainLoop() : receiver_(std::make_shared<Receiver>(*this)) {}

QtMainLoop::~QtMainLoop() {
    // One by one: the destructor of a dropped task may post another.
    while (takePosted())
        ;
}

void QtMainLoop::post(Task task) {
    {
        const std::scoped_lock guard(mutex_);
        inbox_.push_back(std::move(task));
        if (inbox_.size() > 1)
            return; // its event is already posted
    }
    receiver_->wake();
}

Timer QtMainLoop::schedule(std::chrono::milliseconds interval, Repeat repeat, Task task) {
    auto timer = std::make_shared<TimerEntry>(receiver_, interval, repeat, std::move(task));
    receiver_->start(timer, interval);
    return Timer(std::move(timer));
}

std::shared_ptr<void> QtMainLoop::hold() {
    receiver_->hold();
    return {nullptr, [receiver = std::weak_ptr(receiver_)](std::nullptr_t) {
                if (const auto held = receiver.lock())
                    held->release();
            }};
}

// Posts the event for the next task before this one runs, because the task may run a nested event loop.
MainLoop::Task QtMainLoop::takePosted() {
    Task task;
    bool hasMore = false;
    {
        const std::scoped_lock guard(mutex_);
        if (inbox_.empty())
            return {};
        task = std::move(inbox_.front());
        inbox_.pop_front();
        hasMore = !inbox_.empty();
    }
    if (hasMore)
        receiver_->wake();
    return task;
}

} // namespace kelvane
