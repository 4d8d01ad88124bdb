#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

constexpr const char* started = "ConnectionController:start()";
constexpr const char* tryingOnce = "ConnectionController:start - trying to connect immediately";
constexpr const char* unable = "ConnectionController: unable to connect to daemon, will try again...";
constexpr const char* reached = "ConnectionController: connected";
constexpr const char* socketConnected = "ConnectionController::socketConnected:";
constexpr const char* socketFailed = "ConnectionController::socketFailed:";

class ConnectionControllerTest : public LinkTest {
protected:
    ~ConnectionControllerTest() override {
        controller->stop();
        daemon.stop();
        expectNothingLeft();
        const std::weak_ptr<ConnectionController> weak = controller;
        controller.reset();
        EXPECT_TRUE(weak.expired()) << "a stopped controller is kept by nobody";
    }

    // Starts with the daemon up.
    void connect() {
        ASSERT_TRUE(daemon.start());
        controller->start();
        ASSERT_TRUE(daemon.waitForPanes(1));
    }
    // What the controller has logged since the last time, once it ends so.
    std::vector<std::string> newLog(const char* end) {
        std::vector<std::string> all;
        EXPECT_TRUE(loop->runUntil([&] {
            all = logged("ConnectionController:");
            return !all.empty() && all.back() == end;
        }));
        all.erase(all.begin(), all.begin() + std::exchange(seen_, std::ssize(all)));
        return all;
    }

    std::shared_ptr<ConnectionController> controller =
        ConnectionController::create(loop, notifications, bundle, {});
    std::vector<bool> heard; // whether it was connected, at each notification

private:
    std::ptrdiff_t seen_ = 0;
    const NotificationCenter::Observer observer_ =
        notifications->observe(std::string(KelvaneConnectionReadyChangedNotification), controller.get(),
                               [this](const Notification&) { heard.push_back(controller->connected()); });
};

using Lines = std::vector<std::string>;

TEST_F(ConnectionControllerTest, TriesAtOnceAndEverySecondUntilItSucceedsAndAgainAfterALoss) {
    controller->start();
    EXPECT_EQ(newLog(unable), (Lines{started, unable}));
    loop->advance(999ms);
    EXPECT_EQ(newLog(unable), Lines());
    loop->advance(2001ms);
    EXPECT_EQ(newLog(unable), (Lines{unable, unable, unable}));
    EXPECT_EQ(logged("connect failed: No such file or directory").size(), 4U);
    EXPECT_TRUE(heard.empty());

    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(newLog(socketConnected), (Lines{reached, socketConnected}));
    loop->advance(10s);
    EXPECT_EQ(heard, std::vector{true});

    daemon.stop();
    EXPECT_EQ(newLog(socketFailed), Lines{socketFailed});
    EXPECT_EQ(controller->proxy(), nullptr);
    loop->advance(1s);
    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(heard, (std::vector{true, false, true}));
    EXPECT_EQ(newLog(socketConnected), (Lines{unable, reached, socketConnected}));
    EXPECT_EQ(controller->proxy()->call<"pausedMinutes">(), 0U);
}

// The write fails in the caller's own stack: proxy and socket go away under the call.
TEST_F(ConnectionControllerTest, TriesOnlyOnceWithoutItsTimerButRetriesAfterALossThatACallMeets) {
    controller->disableConnectTimer();
    controller->start();
    loop->advance(5s);
    EXPECT_EQ(newLog(unable), (Lines{started, tryingOnce, unable}));
    connect();
    daemon.closePanes();
    EXPECT_EQ(controller->proxy()->call<"serviceState">(), 0U);
    EXPECT_EQ(heard, (std::vector{true, false}));
    EXPECT_EQ(controller->proxy(), nullptr);
    loop->advance(1s);
    EXPECT_EQ(heard, (std::vector{true, false, true}));
}

TEST_F(ConnectionControllerTest, TakesSeveralReportsOfOneLoss) {
    connect();
    const auto socket = KelvaneSocket::create();
    controller->socketFailed(*socket);
    loop->advance(600ms);
    controller->socketFailed(*socket);
    EXPECT_EQ(heard, (std::vector{true, false, false}));
    EXPECT_EQ(loop->runningTimers(), 1);
    loop->advance(999ms);
    EXPECT_FALSE(controller->connected());
    loop->advance(1ms);
    EXPECT_EQ(heard, (std::vector{true, false, false, true}));
}

TEST_F(ConnectionControllerTest, StopEndsTheRetriesAndPosts) {
    controller->start();
    controller->stop();
    EXPECT_EQ(heard, std::vector{false});
    // A report that was on its way to the main thread meanwhile.
    controller->socketFailed(*KelvaneSocket::create());
    loop->advance(5s);
    EXPECT_EQ(newLog(socketFailed), (Lines{started, unable, socketFailed}));
    connect();
    EXPECT_TRUE(controller->connected());
}

} // namespace
} // namespace kelvane::tests
