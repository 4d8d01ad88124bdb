#include "Platform/PollLoop.h"
#include "Platform/SignalWatch.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/time.h>
#include <thread>

namespace kelvane {

using namespace std::chrono_literals;
using Repeat = MainLoop::Repeat;

TEST(PollLoop, RunsWhatThreadsPostInTheOrderOfEach) {
    constexpr int taskCount = 1000;
    PollLoop loop;
    std::array<int, 3> next{};
    const auto postAll = [&](int& count) {
        for (int task = 0; task < taskCount; ++task)
            loop.post([&count, task] { EXPECT_EQ(count++, task); });
        loop.post([&] {
            if (next == std::array{taskCount, taskCount, taskCount})
                loop.quit(5);
        });
    };
    std::vector<std::jthread> threads;
    for (int& count : next)
        threads.emplace_back([&] { postAll(count); });
    EXPECT_EQ(loop.run(), 5);
}

TEST(PollLoop, FiresTimersInTheOrderOfTheirTimesForAsLongAsTheirTokensLive) {
    PollLoop loop;
    std::string fired;
    Timer droppedByAnother;
    Timer droppedByItself;
    // Created in the order in which they become due, however long the creation takes.
    droppedByItself = loop.schedule(1ms, Repeat::Always, [&, held = std::string("once")] {
        droppedByItself.stop();
        droppedByAnother.stop();
        fired += held;
    });
    droppedByAnother = loop.schedule(2ms, Repeat::Always, [&] { fired += 'x'; });
    const Timer last = loop.schedule(4ms, Repeat::Once, [&] { loop.quit(); });
    const Timer farAway =
        loop.schedule(std::chrono::milliseconds::max(), Repeat::Always, [&] { fired += 'y'; });
    const auto allDue = std::chrono::steady_clock::now() + 5ms; // except the last timer
    while (std::chrono::steady_clock::now() < allDue)
        continue;
    loop.run();
    EXPECT_EQ(fired, "once");
}

TEST(PollLoop, ReportsBytesAndTheHangUpBesideATaskThatPostsItself) {
    PollLoop loop;
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    const FileDescriptor reader(ends[0]);
    FileDescriptor writer(ends[1]);
    std::function<void()> again = [&] { loop.post(again); };
    again();
    std::string seen;
    PollLoop::Watch watch = loop.watchDescriptor(reader.get(), POLLIN, [&] {
        char byte = '.';
        if (::read(reader.get(), &byte, 1) == 0) {
            watch.stop();
            loop.post([&] { loop.quit(); });
        }
        seen += byte;
    });
    const Timer timer = loop.schedule(1ms, Repeat::Once, [&] {
        EXPECT_EQ(::write(writer.get(), "ab", 2), 2);
        writer.reset();
    });
    loop.run();
    EXPECT_EQ(seen, "ab.");
}

TEST(PollLoop, GoesOnWhenASignalInterruptsIt) {
    struct sigaction quiet {};
    struct sigaction before {};
    quiet.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGALRM, &quiet, &before), 0);
    const itimerval soon{{0, 0}, {0, 10'000}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &soon, nullptr), 0);
    PollLoop loop;
    const Timer timer = loop.schedule(100ms, Repeat::Once, [&] { loop.quit(); });
    EXPECT_NO_THROW(loop.run());
    ::sigaction(SIGALRM, &before, nullptr);
}

TEST(SignalWatch, TurnsSignalsIntoTasksAndRestoresTheMask) {
    PollLoop loop;
    std::vector<int> seen;
    std::unique_ptr<SignalWatch> watch;
    watch = std::make_unique<SignalWatch>(loop, std::vector{SIGINT, SIGTERM}, [&](int signal) {
        seen.push_back(signal);
        if (signal == SIGINT)
            return;
        ::raise(SIGTERM); // still pending when the watch ends: it must not end the process
        watch.reset();
        loop.quit();
    });
    ::raise(SIGINT);
    ::raise(SIGTERM);
    loop.run();
    EXPECT_EQ(seen, (std::vector{SIGINT, SIGTERM}));
    sigset_t mask;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(::sigismember(&mask, SIGTERM), 0);
}

} // namespace kelvane
