#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

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
    [[nodiscard]] std::size_t failedAttempts() { return logged("ConnectionController: unable").size(); }

    std::shared_ptr<ConnectionController> controller =
        ConnectionController::create(loop, notifications, bundle, {});
    std::vector<bool> heard; // whether it was connected, at each notification

private:
    const NotificationCenter::Observer observer_ =
        notifications->observe(std::string(KelvaneConnectionReadyChangedNotification), controller.get(),
                               [this](const Notification&) { heard.push_back(controller->connected()); });
};

TEST_F(ConnectionControllerTest, TriesAtOnceAndEverySecondUntilItSucceedsAndAgainAfterALoss) {
    controller->start();
    loop->advance(999ms);
    EXPECT_EQ(failedAttempts(), 1U);
    loop->advance(2001ms);
    EXPECT_EQ(failedAttempts(), 4U);
    EXPECT_TRUE(heard.empty());

    ASSERT_TRUE(daemon.start());
    loop->advance(10s);
    EXPECT_EQ(heard, std::vector{true});

    daemon.stop();
    ASSERT_TRUE(loop->runUntil([this] { return !controller->connected(); }));
    EXPECT_EQ(controller->proxy(), nullptr);
    loop->advance(1s);
    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(heard, (std::vector{true, false, true}));
    EXPECT_EQ(controller->proxy()->call<"pausedMinutes">(), 0U);
}

// The write fails in the caller's own stack: proxy and socket go away under the call.
TEST_F(ConnectionControllerTest, TriesOnlyOnceWithoutItsTimerButRetriesAfterALossThatACallMeets) {
    controller->disableConnectTimer();
    controller->start();
    loop->advance(5s);
    EXPECT_EQ(failedAttempts(), 1U);
    EXPECT_EQ(logged("ConnectionController:start - trying to connect immediately").size(), 1U);
    connect();
    daemon.closePanes();
    EXPECT_EQ(controller->proxy()->call<"serviceState">(), 0U);
    EXPECT_EQ(heard, (std::vector{true, false}));
    EXPECT_EQ(controller->proxy(), nullptr);
    loop->advance(1s);
    EXPECT_EQ(heard, (std::vector{true, false, true}));
}

TEST_F(ConnectionControllerTest, TakesSeveralReportsOfOneLoss) {
    controller->start();
    controller->stop();
    heard.clear();
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

} // namespace
} // namespace kelvane::tests
