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

class DaemonCalls : public BackupStateTest {
protected:
    void SetUp() override {
        state->setProxyDelegate(pane);
        connect();
    }

    std::shared_ptr<Pane> pane = std::make_shared<Pane>();
};

TEST_F(DaemonCalls, ArriveOnTheMainLoopInOrder) {
    const std::vector<ReceivedCall> sent{
        {"fileChanged:", {"/a"}},         {"filesChanged:", {Value(Array{"/a", "/b"})}},
        {"folderChanged:", {"/c"}},       {"foldersChanged:", {Value(Array{"/c"})}},
        {"stateChanged:", {48U}},         {"statesChanged:", {Value(Array{15, 16})}},
        {"setAlertString:", {"a|b|c"}},   {"setAlertStrings:", {Value(Array{"a|b"})}},
        {"stateChanged:", {4294967295U}}, {"fileChanged:", {"/d"}}};
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
}

TEST_F(DaemonCalls, ForAPaneThatHasGoneAreDropped) {
    daemon.callPanes("fileChanged:", {"/queued"});
    static_cast<void>(state->automaticMode()); // the call before it has been received
    const std::weak_ptr<Pane> gone = pane;
    pane.reset();
    ASSERT_TRUE(gone.expired());
    daemon.callPanes("fileChanged:", {"/late"});
    static_cast<void>(state->automaticMode());
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

TEST_F(BackupStateTest, EndsWhileItStillTries) {
    state->onBegin();
    EXPECT_EQ(loop->runningTimers(), 1);
    state->onEnd();
    EXPECT_EQ(heard, Heard{"lost"});
    EXPECT_EQ(loop->runningTimers(), 0);
}

TEST_F(BackupStateTest, WithoutItsTimerTriesOnce) {
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
struct Moment {
    const char* name;
    std::string_view notification;
    bool connected;
    bool byItself = false; // lost because it was ended
};
constexpr Moment moments[] = {
    {"connected", KelvaneBackupStateConnectionChangedNotification, true},
    {"state", KelvaneBackupStateChangedNotification, true},
    {"lost", KelvaneBackupStateConnectionChangedNotification, false},
    {"ended", KelvaneBackupStateConnectionChangedNotification, false, true},
};

TEST_F(LinkTest, AnObserverMayEndOrDropTheStateInTheMiddle) {
    for (const Moment& moment : moments)
        for (const bool drops : {false, true}) {
            SCOPED_TRACE(moment.name);
            ASSERT_TRUE(daemon.start());
            auto state = std::make_unique<BackupState>(loop, notifications, bundle);
            state->setWantsStateChangedNotifications();
            int times = 0;
            const auto observer = notifications->observe(
                std::string(moment.notification), state.get(), [&, drops](const Notification&) {
                    if (!state || state->connected() != moment.connected || ++times > 1)
                        return;
                    if (drops)
                        state.reset();
                    else
                        state->onEnd();
                });
            state->onBegin();
            if (moment.byItself) {
                state->onEnd();
            } else if (!moment.connected) {
                ASSERT_TRUE(daemon.waitForPanes(1));
                daemon.stop();
                loop->advance(2s); // the poll meets the loss
            }
            EXPECT_GE(times, 1);
            daemon.stop();
            expectNothingLeft();
        }
}

// The same from inside a question of the pane.
TEST_F(BackupStateTest, MayBeDroppedByTheLossThatACallMeets) {
    connect();
    const auto observer = notifications->observe(std::string(KelvaneBackupStateConnectionChangedNotification),
                                                 state.get(), [this](const Notification&) { state.reset(); });
    BackupState& dropped = *state;
    daemon.stop();
    EXPECT_EQ(dropped.dictionaryForPath("/a"), Value());
    EXPECT_EQ(state, nullptr);
}

} // namespace
} // namespace kelvane::tests
