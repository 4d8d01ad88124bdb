#include "Platform/Desktop/Authorization/FixedAuthorization.h"

namespace kelvane {

using Problem = AuthorizationProblem::Kind;

void FixedAuthorization::lookUpRight(std::function<void(RightStatus)> completion) {
    post([completion = std::move(completion)](LockState&) { completion(RightStatus::Exists); });
}

void FixedAuthorization::createRight(std::function<void(bool created)> completion) {
    post([completion = std::move(completion)](LockState&) { completion(true); });
}

void FixedAuthorization::startUpdating() {
    post([isGranted = isGranted_](LockState& lock) { lock.settle(isGranted); });
}

void FixedAuthorization::unlock(std::function<void(bool granted)> completion) {
    lock_->addCompletion(std::move(completion));
    if (lock_->isAsking() || !lock_->startAsking())
        return;
    post([isGranted = isGranted_, question = lock_->question()](LockState& lock) {
        if (lock.question() == question)
            lock.finishAsking(isGranted, {isGranted ? Problem::None : Problem::RefusedByChoice, {}});
    });
}

void FixedAuthorization::cancelUnlock() {
    if (!lock_->isAsking())
        return;
    lock_->withdrawQuestion();
    post([](LockState& lock) { lock.stopAsking(); });
}

void FixedAuthorization::lock() {
    post([](LockState& lock) { lock.settle(false); });
}

void FixedAuthorization::post(std::function<void(LockState& lock)> task) {
    mainLoop_->post([weak = std::weak_ptr(lock_), task = std::move(task)] {
        // Does not hold the lock during the task: when the delegate destroys it, `LockState` must notice.
        if (LockState* const lock = weak.lock().get())
            task(*lock);
    });
}

} // namespace kelvane
