#include "Foundation/ConditionLock.h"

#include <future>
#include <gtest/gtest.h>

namespace kelvane::tests {

TEST(ConditionLock, EndsEveryWaitOnInterruptUntilResumed) {
    ConditionLock lock(0);
    const unsigned before = lock.interruptions();
    const auto wait = [&] { return lock.lockWhenCondition(1); };
    std::future<bool> waits[] = {std::async(std::launch::async, wait), std::async(std::launch::async, wait)};
    lock.interrupt();
    for (auto& each : waits)
        EXPECT_FALSE(each.get());
    EXPECT_FALSE(wait()) << "also a later one";
    EXPECT_TRUE(lock.lockWhenCondition(0)) << "there is nothing to wait for";
    lock.unlock();

    lock.resume();
    EXPECT_FALSE(lock.lockWhenCondition(1, before)) << "it is over, and came after the cause of the wait";
    EXPECT_TRUE(lock.lockWhenCondition(0, before));
    auto resumed = std::async(std::launch::async, wait);
    lock.unlockWithCondition(1);
    EXPECT_TRUE(resumed.get());
}

} // namespace kelvane::tests
