#include "Common/ClientTarget.h"
#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

using Heard = std::vector<std::string>;

// Notes what the daemon calls, and on which thread.
class Pane : public ClientTarget {
public:
    void fileChanged(const Value& path) override { note("fileChanged:", path); }
    void filesChanged(const Value& paths) override { note("filesChanged:", paths); }
    void folderChanged(const Value& path) override { note("folderChanged:", path); }
    void foldersChanged(const Value& paths) override { note("foldersChanged:", paths); }
    void stateChanged(std::uint32_t state) override { note("stateChanged:", state); }
    void statesChanged(const Value& states) override { note("statesChanged:", states); }
    void setAlertString(const Value& alert) override { note("setAlertString:", alert); }
    void setAlertStrings(const Value& alerts) override { note("setAlertStrings:", alerts); }

    std::vector<ReceivedCall> calls;

private:
    void note(const char* selector, Value argument) {
        EXPECT_EQ(std::this_thread::get_id(), mainThread_);
        calls.push_back({selector, {std::move(argument)}});
    }

    const std::thread::id mainThread_ = std::this_thread::get_id();
};

TEST_F(BackupStateTest, TheDaemonsCallsArriveOnTheMainLoopInOrderWhileThePaneIsThere) {
    const std::vector<ReceivedCall> sent{
        {"fileChanged:", {"/a"}},         {"filesChanged:", {Value(Array{"/a", "/b"})}},
        {"folderChanged:", {"/c"}},       {"foldersChanged:", {Value(Array{"/c"})}},
        {"stateChanged:", {48U}},         {"statesChanged:", {Value(Array{15, 16})}},
        {"setAlertString:", {"a|b|c"}},   {"setAlertStrings:", {Value(Array{"a|b"})}},
        {"stateChanged:", {4294967295U}}, {"fileChanged:", {"/d"}}};
    auto pane = std::make_shared<Pane>();
    state->setProxyDelegate(pane);
    connect();
    // While the pane waits for an answer: they come before it and run when the caller is back in its loop.
    daemon.answerWith("marketingMessage", [&](const Array&) {
        for (const ReceivedCall& call : sent)
            daemon.callPanes(call.selector, call.arguments);
        return Value("Hello");
    });
    EXPECT_EQ(state->marketingMessage(), Value("Hello"));
    EXPECT_TRUE(pane->calls.empty());
    loop->runPosted();
    EXPECT_EQ(pane->calls, sent);

    EXPECT_EQ(state->marketingMessage(), Value("Hello"));
    const std::weak_ptr<Pane> gone = pane;
    pane.reset(); // while calls for it are queued, and more come
    EXPECT_TRUE(gone.expired());
    EXPECT_EQ(state->marketingMessage(), Value("Hello"));
    loop->runPosted();
    EXPECT_TRUE(state->connected());
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
