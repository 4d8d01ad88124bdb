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
    EXPECT_EQ(lock.condition(), 0);
}

TEST(ConditionLock, ExcludesOthersAndKeepsTheConditionOnAPlainUnlock) {
    ConditionLock lock(7);
    lock.lock();
    int guarded = 0;
    std::thread other([&] {
        lock.lock();
        EXPECT_EQ(guarded, 1);
        lock.unlock();
    });
    std::thread waiting([&] {
        ASSERT_TRUE(lock.lockWhenCondition(7));
        EXPECT_EQ(guarded, 1);
        lock.unlock();
    });
    guarded = 1;
    lock.unlock();
    other.join();
    waiting.join();
    EXPECT_EQ(lock.condition(), 7);
}

TEST(ConditionLock, EndsEveryWaitOnInterruptUntilResumed) {
    ConditionLock lock(0);
    std::vector<std::future<bool>> waits;
    for (int i = 0; i < 4; ++i)
        waits.push_back(std::async(std::launch::async, [&] { return lock.lockWhenCondition(1); }));
    lock.interrupt();
    for (auto& wait : waits)
        EXPECT_FALSE(wait.get());
    EXPECT_FALSE(lock.lockWhenCondition(1)) << "also a later one";
    EXPECT_EQ(lock.condition(), 0);
    EXPECT_TRUE(lock.lockWhenCondition(0)) << "there is nothing to wait for";
    lock.unlock();

    lock.resume();
    auto wait = std::async(std::launch::async, [&] { return lock.lockWhenCondition(1); });
    lock.lock();
    lock.unlockWithCondition(1);
    EXPECT_TRUE(wait.get());
    lock.unlock();
}

TEST(ConditionLock, NoticesAnInterruptThatIsOver) {
    ConditionLock lock(0);
    const unsigned before = lock.interruptions();
    lock.interrupt();
    lock.resume();
    EXPECT_FALSE(lock.lockWhenCondition(1, before));
    EXPECT_TRUE(lock.lockWhenCondition(0, before)) << "there is nothing to wait for";
    lock.unlock();
}

} // namespace
} // namespace kelvane::tests
