#pragma once

#include <condition_variable>
#include <mutex>

namespace kelvane {

// A mutex with an integer condition. A thread can wait until the condition has a certain value and acquires
// the mutex at that moment. A thread that unlocks the mutex can set a new condition.
//
// Any thread may call any function. Only the thread that holds the lock may unlock it, and it must not lock
// it again. `interrupt` makes every call that waits for a condition, now and until `resume`, return false
// instead of blocking; the condition stays the same.
//
// An owner calls `interrupt` before it is destroyed, and must outlive the calls that it interrupts.
class ConditionLock {
public:
    explicit ConditionLock(int condition = 0) : condition_(condition) {}

    void lock();
    // Returns false without the lock if the wait was interrupted.
    [[nodiscard]] bool lockWhenCondition(int condition);
    // Likewise, but also returns false if there has been an interruption since `interruptions()` returned
    // this value, even one that is over: for a wait whose reason is older than the wait.
    [[nodiscard]] bool lockWhenCondition(int condition, unsigned interruptions);
    void unlock();
    void unlockWithCondition(int condition);

    void interrupt();
    void resume();
    [[nodiscard]] unsigned interruptions() const;

    [[nodiscard]] int condition() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int condition_;
    bool locked_ = false;
    bool interrupted_ = false;
    unsigned interruptions_ = 0;
};

} // namespace kelvane
