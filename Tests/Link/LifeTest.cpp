#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

using Heard = std::vector<std::string>;

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
    EXPECT_TRUE(daemon.waitForPanes(1)); // the first one goes
}

// Whatever an observer does in the middle of a notification, nothing crashes and nothing goes on that has
// been ended.
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

} // namespace
} // namespace kelvane::tests
