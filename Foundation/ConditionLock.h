#pragma once

#include <condition_variable>
#include <mutex>

namespace kelvane {

// A mutex that also holds an integer condition. Whoever waits for a condition gets the mutex when the
// condition has that value; whoever unlocks says which value it leaves behind, or leaves the one that is
// there.
//
// Any thread may call any operation; only the thread that locked unlocks, and it must not lock again.
// `interrupt` ends every wait for a condition that would not end at once, now and until `resume`, with false:
// an owner that goes away calls it so that no thread stays behind. The condition is not changed by it. An
// owner must outlive the waits that it interrupts.
class ConditionLock {
public:
    explicit ConditionLock(int condition = 0) : condition_(condition) {}

    void lock();
    // False: interrupted, and the lock is not held.
    [[nodiscard]] bool lockWhenCondition(int condition);
    // The same, but every interruption since `interruptions` had the given value counts, also one that is
    // over: for a wait whose cause lies before it.
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
