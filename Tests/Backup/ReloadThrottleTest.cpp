#include "PreferencePane/Backup/ReloadThrottle.h"

#include "Tests/Harness/ManualLoop.h"

#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

using namespace std::chrono_literals;
using Seconds = ReloadThrottle::Seconds;

class ReloadThrottleTest : public testing::Test {
protected:
    void change(int column, Seconds later) {
        now += later;
        throttle.columnChanged(column);
    }
    // What has been reloaded since the last question, and after a bar what the loop's next turn reloads.
    std::string reloads() {
        std::string now = std::exchange(reloaded, {});
        loop->advance(0ms);
        const std::string next = std::exchange(reloaded, {});
        return next.empty() ? now : now + '|' + next;
    }

    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    Seconds now{1000};
    Seconds cost{1}; // of a reload
    std::string reloaded;
    ReloadThrottle throttle{loop,
                            [this](int column) {
                                reloaded += std::to_string(column);
                                now += cost;
                            },
                            [this] { return now; }};
};

TEST_F(ReloadThrottleTest, HoldsAReloadBackWhileTwiceTheLastOnesTimeLasts) {
    change(2, 0s);
    EXPECT_EQ(reloads(), "3");
    change(2, 2s); // not more than twice
    EXPECT_EQ(reloads(), "|3");
    // A reload that was held back counts for nothing: what comes next is not held back.
    change(2, 1ms);
    EXPECT_EQ(reloads(), "3");
    cost = 5s;
    change(2, 2001ms);
    EXPECT_EQ(reloads(), "3");
    change(2, 9s);
    EXPECT_EQ(reloads(), "|3");
}

TEST_F(ReloadThrottleTest, ReloadsOnceForAllThatIsHeldBackOfAColumn) {
    change(0, 0s);
    for (int times = 0; times < 5; ++times)
        change(0, 100ms);
    EXPECT_EQ(reloads(), "1|1");
    change(0, 0s);
    change(0, 100ms);
    change(0, 2s); // late enough to go at once, in place of the one held back
    EXPECT_EQ(reloads(), "11");
    change(0, 100ms);
    change(3, 0s); // the one let go costs nothing from then on
    EXPECT_EQ(reloads(), "14");
    change(3, 100ms);
    change(-1, 0s); // shown by no column
    EXPECT_EQ(reloads(), "4");
    EXPECT_EQ(loop->runningTimers(), 0);
}

} // namespace
} // namespace kelvane::tests
