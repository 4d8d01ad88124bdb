#include "Foundation/ConditionLock.h"

#include <future>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace kelvane::tests {
namespace {

TEST(ConditionLock, HandsOverOnlyUnderTheConditionThatIsWaitedFor) {
    constexpr int rounds = 2000;
    ConditionLock lock(0);
    std::vector<int> order; // guarded by the lock
    const auto turns = [&](int mine, int next) {
        for (int i = 0; i < rounds; ++i) {
            ASSERT_TRUE(lock.lockWhenCondition(mine));
            order.push_back(mine);
            lock.unlockWithCondition(next);
        }
    };
    std::thread second(turns, 1, 2);
    std::thread third(turns, 2, 0);
    turns(0, 1);
    second.join();
    third.join();
    ASSERT_EQ(order.size(), 3U * rounds);
    for (std::size_t i = 0; i < order.size(); ++i)
        ASSERT_EQ(order[i], static_cast<int>(i % 3));
}

TEST(ConditionLock, ExcludesOthersAndKeepsTheConditionOnAPlainUnlock) {
    ConditionLock lock(7);
    for (const bool forCondition : {false, true}) {
        lock.lock();
        auto other = std::async(std::launch::async, [&] {
            if (forCondition)
                EXPECT_TRUE(lock.lockWhenCondition(7));
            else
                lock.lock();
            lock.unlock();
        });
        EXPECT_EQ(other.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        lock.unlock();
        other.get();
    }
    EXPECT_EQ(lock.condition(), 7);
}

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

} // namespace
} // namespace kelvane::tests
