#include "Foundation/ConditionLock.h"

namespace kelvane {

void ConditionLock::lock() {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return !locked_; });
    locked_ = true;
}

bool ConditionLock::lockWhenCondition(int condition) {
    return lockWhenCondition(condition, interruptions());
}

bool ConditionLock::lockWhenCondition(int condition, unsigned interruptions) {
    std::unique_lock guard(mutex_);
    const auto available = [&] { return !locked_ && condition_ == condition; };
    changed_.wait(guard, [&] { return available() || interrupted_ || interruptions_ != interruptions; });
    if (!available())
        return false;
    locked_ = true;
    return true;
}

void ConditionLock::unlock() {
    const std::scoped_lock guard(mutex_);
    locked_ = false;
    changed_.notify_all();
}

void ConditionLock::unlockWithCondition(int condition) {
    const std::scoped_lock guard(mutex_);
    locked_ = false;
    condition_ = condition;
    changed_.notify_all();
}

void ConditionLock::interrupt() {
    const std::scoped_lock guard(mutex_);
    interrupted_ = true;
    ++interruptions_;
    changed_.notify_all();
}

void ConditionLock::resume() {
    const std::scoped_lock guard(mutex_);
    interrupted_ = false;
}

unsigned ConditionLock::interruptions() const {
    const std::scoped_lock guard(mutex_);
    return interruptions_;
}

int ConditionLock::condition() const {
    const std::scoped_lock guard(mutex_);
    return condition_;
}

} // namespace kelvane
