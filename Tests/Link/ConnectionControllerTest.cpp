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
    }

    using Lines = std::vector<std::string>;
    Lines controllerLog() { return logged("ConnectionController:"); }

    const std::shared_ptr<ConnectionController> controller =
        ConnectionController::create(loop, notifications, bundle, {});
    std::vector<bool> heard; // whether it was connected, at each notification

private:
    const NotificationCenter::Observer observer_ =
        notifications->observe(std::string(KelvaneConnectionReadyChangedNotification), controller.get(),
                               [this](const Notification&) { heard.push_back(controller->connected()); });
};

TEST_F(ConnectionControllerTest, TriesAtOnceAndThenEverySecondUntilItSucceeds) {
    controller->start();
    EXPECT_EQ(controllerLog(), (Lines{started, unable}));
    loop->advance(999ms);
    EXPECT_EQ(controllerLog().size(), 2U);
    loop->advance(2001ms);
    EXPECT_EQ(controllerLog(), (Lines{started, unable, unable, unable, unable}));
    EXPECT_EQ(logged("connect failed: No such file or directory").size(), 4U);
    EXPECT_TRUE(heard.empty());

    ASSERT_TRUE(daemon.start());
    loop->advance(1000ms);
    EXPECT_EQ(heard, std::vector{true});
    EXPECT_TRUE(loop->runUntil([this] { return controllerLog().back() == socketConnected; }));
    loop->advance(10s);
    EXPECT_EQ(controllerLog(), (Lines{started, unable, unable, unable, unable, reached, socketConnected}));
    EXPECT_EQ(heard.size(), 1U);
}

TEST_F(ConnectionControllerTest, AnnouncesALossRetriesAndAnnouncesTheReturn) {
    ASSERT_TRUE(daemon.start());
    controller->start();
    ASSERT_TRUE(loop->runUntil([this] { return controllerLog().back() == socketConnected; }));
    daemon.stop();
    ASSERT_TRUE(loop->runUntil([this] { return heard.size() == 2; }));
    EXPECT_EQ(controller->proxy(), nullptr);
    loop->advance(1s);
    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(heard, (std::vector{true, false, true}));
    ASSERT_TRUE(loop->runUntil([this] { return controllerLog().back() == socketConnected; }));
    EXPECT_EQ(controllerLog(),
              (Lines{started, reached, socketConnected, socketFailed, unable, reached, socketConnected}));
    EXPECT_EQ(controller->proxy()->call<"pausedMinutes">(), 0U);
}

TEST_F(ConnectionControllerTest, TriesOnlyOnceWithoutItsTimerButRetriesAfterALoss) {
    controller->disableConnectTimer();
    controller->start();
    loop->advance(5s);
    EXPECT_EQ(controllerLog(), (Lines{started, tryingOnce, unable}));
    ASSERT_TRUE(daemon.start());
    controller->start();
    ASSERT_TRUE(daemon.waitForPanes(1));
    daemon.closePanes();
    static_cast<void>(controller->proxy()->call<"pausedMinutes">());
    loop->advance(1s);
    EXPECT_EQ(heard, (std::vector{true, false, true}));
}

// The write fails in the caller's own stack: proxy and socket go away under the call.
TEST_F(ConnectionControllerTest, TellsOfALossInsideTheCallThatMeetsIt) {
    ASSERT_TRUE(daemon.start());
    controller->start();
    ASSERT_TRUE(daemon.waitForPanes(1));
    daemon.closePanes();
    EXPECT_EQ(controller->proxy()->call<"serviceState">(), 0U);
    EXPECT_EQ(heard, (std::vector{true, false}));
    EXPECT_EQ(controller->proxy(), nullptr);
    EXPECT_EQ(loop->runningTimers(), 1);
}

TEST_F(ConnectionControllerTest, TakesSeveralReportsOfOneLoss) {
    ASSERT_TRUE(daemon.start());
    controller->start();
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
    EXPECT_EQ(controllerLog(), (Lines{started, unable, socketFailed}));
    ASSERT_TRUE(daemon.start());
    controller->start();
    EXPECT_TRUE(controller->connected());
}

TEST_F(LinkTest, AStoppedControllerIsKeptByNobody) {
    ASSERT_TRUE(daemon.start());
    auto controller = ConnectionController::create(loop, notifications, bundle, {});
    controller->start();
    const std::weak_ptr<ConnectionController> weak = controller;
    controller->stop();
    controller.reset();
    EXPECT_TRUE(loop->runUntil([&] { return weak.expired(); }));
    daemon.stop();
    expectNothingLeft();
}

} // namespace
} // namespace kelvane::tests
