#include "Platform/Desktop/QtMainLoop.h"
#include "Tests/Harness/RunUntil.h"

#include <QEventLoop>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace kelvane {

using Repeat = MainLoop::Repeat;
using std::chrono::milliseconds;

TEST(QtMainLoop, RunsPostsOfOtherThreadsInOrderAlsoInANestedLoop) {
    QtMainLoop loop;
    std::vector<int> seen;
    loop.post([&] { // waits for the task after it
        QEventLoop nested;
        loop.post([&] { nested.quit(); });
        nested.exec();
        seen.push_back(-1);
    });
    std::thread poster([&] {
        for (int i = 0; i < 1000; ++i)
            loop.post([&seen, i] { seen.push_back(i); });
    });
    EXPECT_TRUE(tests::runUntil([&] { return seen.size() == 1001; }));
    poster.join();
    std::erase(seen, -1);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST(QtMainLoop, AnEndedTimerDoesNotStopTheOneThatGotItsNumber) {
    QtMainLoop loop;
    int onceCount = 0;
    int repeatedCount = 0;
    Timer once;
    Timer repeated;
    once = loop.schedule(milliseconds(0), Repeat::Once, [&] {
        ++onceCount;
        repeated = loop.schedule(milliseconds(1), Repeat::Always, [&] {
            once.stop();
            if (++repeatedCount == 3)
                repeated.stop(); // from its own callback
        });
    });
    EXPECT_TRUE(tests::runUntil([&] { return repeatedCount == 3; }));
    bool isOver = false;
    const Timer last = loop.schedule(milliseconds(20), Repeat::Once, [&] { isOver = true; });
    EXPECT_TRUE(tests::runUntil([&] { return isOver; }));
    EXPECT_EQ(onceCount, 1);
    EXPECT_EQ(repeatedCount, 3);
}

TEST(QtMainLoop, DropsWhatIsLeftAndLetsTokensOutliveIt) {
    const auto held = std::make_shared<int>();
    auto loop = std::make_unique<QtMainLoop>();
    bool hasRun = false;
    Timer timer = loop->schedule(milliseconds(0), Repeat::Once, [held, &hasRun] { hasRun = true; });
    struct PostsOnceMore {
        QtMainLoop& loop;
        std::shared_ptr<int> held;
        ~PostsOnceMore() {
            loop.post([held = held] {});
        }
    };
    loop->post([last = std::make_shared<PostsOnceMore>(PostsOnceMore{*loop, held})] {});
    loop.reset();
    QCoreApplication::processEvents();
    EXPECT_FALSE(hasRun);
    timer.stop();
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace kelvane
