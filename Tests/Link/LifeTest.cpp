#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

using Heard = std::vector<std::string>;

class StatePoll : public BackupStateTest {
protected:
    void SetUp() override {
        state->setWantsStateChangedNotifications();
        daemon.setState("quotaMB", 5);
    }
    [[nodiscard]] std::size_t polls() const { return daemon.callCount("daemonState"); }
};

TEST_F(BackupStateTest, PollsOnlyWhenSomebodyWantsToKnow) {
    connect();
    loop->advance(10s);
    EXPECT_EQ(daemon.callCount("daemonState"), 0U);
    EXPECT_EQ(loop->runningTimers(), 0);
    state->updateDaemonState();
    EXPECT_EQ(heard, (Heard{"connected", "state"}));
}

TEST_F(StatePoll, RunsAfterTheNewsOfTheConnectionAndThenEveryTwoSecondsWhileConnected) {
    std::size_t pollsBefore = 1;
    const auto observer = notifications->observe(KelvaneBackupStateConnectionChangedNotification, nullptr,
                                                 [&](const Notification&) { pollsBefore = polls(); });
    connect();
    EXPECT_EQ(pollsBefore, 0U);
    EXPECT_EQ(polls(), 1U);
    loop->advance(1999ms);
    EXPECT_EQ(polls(), 1U);
    loop->advance(4001ms);
    EXPECT_EQ(polls(), 4U);
    loseDaemon();
    loop->advance(900ms);
    state->updateDaemonState();
    EXPECT_EQ(polls(), 4U);
    EXPECT_EQ(loop->runningTimers(), 1); // the retry
    EXPECT_EQ(state->quotaMB(), 5U);     // the last value is kept
    ASSERT_TRUE(daemon.start());
    loop->advance(100ms);
    EXPECT_EQ(polls(), 5U);
    loop->advance(2s);
    EXPECT_EQ(polls(), 6U);
    EXPECT_EQ(heard, (Heard{"connected", "state", "lost", "connected"}))
        << "the same dictionary is not announced again";
}

TEST_F(StatePoll, AnnouncesADictionaryOnlyWhenItIsAnotherOne) {
    daemon.setState("paused", true);
    connect();
    loop->advance(2s);
    EXPECT_EQ(states, (std::vector<Value>{Dictionary{{"quotaMB", 5}, {"paused", true}}}));
    // The same with other number types and in another order.
    daemon.changeWorld([](DaemonWorld& world) {
        world.state = Dictionary{{"paused", 1U}, {"quotaMB", 5.0}};
    });
    loop->advance(2s);
    EXPECT_EQ(states.size(), 1U);
    daemon.setState("quotaMB", 6);
    loop->advance(4s);
    EXPECT_EQ(heard, (Heard{"connected", "state", "state"}));
    EXPECT_EQ(states.back()["quotaMB"], Value(6));
    EXPECT_EQ(logged("daemonState: ").size(), 2U);
}

TEST_F(StatePoll, ClearsAndAnnouncesEveryTimeThatThereIsNoDictionary) {
    connect();
    for (const Value& answer : {Value(), Value("text"), Value(Array{1})}) {
        daemon.answer("daemonState", answer);
        states.clear();
        loop->advance(4s);
        EXPECT_EQ(states, (std::vector<Value>{Value(), Value()})) << answer.description();
        EXPECT_EQ(state->quotaMB(), 0U);
    }
    daemon.answerAsUsual("daemonState");
    loop->advance(2s);
    EXPECT_EQ(state->quotaMB(), 5U);
    EXPECT_EQ(logged("daemonState: (null)").size(), 6U);
}

TEST_F(StatePoll, IsNotStartedWhenAnObserverFindsTheLinkGone) {
    const auto observer = notifications->observe(KelvaneBackupStateConnectionChangedNotification, nullptr,
                                                 [this](const Notification&) {
                                                     if (!state->connected() || !daemon.waitForPanes(1))
                                                         return;
                                                     daemon.stop();
                                                     EXPECT_EQ(state->userEmail(), "");
                                                 });
    ASSERT_TRUE(daemon.start());
    state->onBegin();
    EXPECT_FALSE(state->connected());
    EXPECT_EQ(polls(), 0U);
    EXPECT_EQ(loop->runningTimers(), 1); // the retry
    EXPECT_EQ(heard, (Heard{"connected", "lost"}));
}

TEST_F(BackupStateTest, EndIsHeardByThoseWhoObserveIt) {
    state->setWantsStateChangedNotifications();
    connect();
    state->onEnd();
    EXPECT_EQ(heard, (Heard{"connected", "state", "lost"}));
    EXPECT_EQ(loop->runningTimers(), 0);
    state->onEnd();
    loop->advance(5s);
    EXPECT_EQ(heard.size(), 3U);
    state->onBegin();
    EXPECT_EQ(heard.back(), "connected"); // the dictionary is the same
    EXPECT_EQ(logged("BackupState:onBegin - opening connection").size(), 2U);
}

TEST_F(BackupStateTest, EndsWhileItStillTriesAndWithoutItsTimerTriesOnce) {
    state->onBegin();
    EXPECT_EQ(loop->runningTimers(), 1);
    state->onEnd();
    EXPECT_EQ(heard, Heard{"lost"});
    EXPECT_EQ(loop->runningTimers(), 0);
    state->disableConnectTimer();
    state->onBegin();
    EXPECT_EQ(loop->runningTimers(), 0);
}

TEST_F(BackupStateTest, BeginningAgainLeavesOneConnection) {
    connect();
    state->onBegin();
    daemon.answer("automaticMode", 1);
    EXPECT_TRUE(state->automaticMode());
    EXPECT_TRUE(daemon.waitForPanes(1)); // the first connection is closed
}

// Whatever an observer does during a notification, nothing crashes and nothing that was ended continues.
TEST_F(LinkTest, AnObserverMayEndOrDropTheStateInTheMiddle) {
    enum class Moment { Connected, StateCame, LostInAPoll, LostInACall, Ended };
    for (const Moment moment :
         {Moment::Connected, Moment::StateCame, Moment::LostInAPoll, Moment::LostInACall, Moment::Ended})
        for (const bool drops : {false, true}) {
            SCOPED_TRACE(static_cast<int>(moment));
            ASSERT_TRUE(daemon.start());
            auto state = std::make_unique<BackupState>(loop, notifications, bundle);
            state->setWantsStateChangedNotifications();
            int times = 0;
            const auto observer = notifications->observe(
                std::string(moment == Moment::StateCame ? KelvaneBackupStateChangedNotification
                                                        : KelvaneBackupStateConnectionChangedNotification),
                state.get(), [&, drops](const Notification&) {
                    if (!state || state->connected() != (moment <= Moment::StateCame) || ++times > 1)
                        return;
                    if (drops)
                        state.reset();
                    else
                        state->onEnd();
                });
            state->onBegin();
            BackupState* const started = state.get();
            if (moment == Moment::Ended) {
                started->onEnd();
            } else if (moment > Moment::StateCame) {
                ASSERT_TRUE(daemon.waitForPanes(1));
                daemon.stop();
                if (moment == Moment::LostInAPoll)
                    loop->advance(2s);
                else
                    EXPECT_EQ(started->dictionaryForPath("/a"), Value());
            }
            EXPECT_GE(times, 1);
            daemon.stop();
            expectNothingLeft();
        }
}

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

    // Starts with a running daemon.
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
        notifications->observe(KelvaneConnectionReadyChangedNotification, controller.get(),
                               [this](const Notification&) { heard.push_back(controller->connected()); });
};

TEST_F(ConnectionControllerTest, TriesAtOnceAndEverySecondUntilItSucceeds) {
    controller->start();
    loop->advance(999ms);
    EXPECT_EQ(failedAttempts(), 1U);
    loop->advance(2001ms);
    EXPECT_EQ(failedAttempts(), 4U);
    EXPECT_TRUE(heard.empty());

    ASSERT_TRUE(daemon.start());
    loop->advance(10s);
    EXPECT_EQ(heard, std::vector{true});
}

// The write fails on the caller's stack: proxy and socket are destroyed during the call.
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

TEST_F(ConnectionControllerTest, LosesADaemonThatDoesNotRead) {
    controller->setSendTimeout(50ms);
    connect();
    const FakeDaemon::Hold hold = daemon.hold("setRecoverMode:");
    controller->proxy()->call<"setRecoverMode:">(true);
    controller->proxy()->call<"addFileToBackup:">(std::string(8U << 20U, 'x')); // exceeds the socket's buffer
    EXPECT_TRUE(loop->runUntil([this] { return !controller->connected(); }));
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
