#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

using Calls = std::vector<ReceivedCall>;

class Answers : public BackupStateTest {
protected:
    void SetUp() override { connect(); }
};

TEST_F(Answers, ComeFromTheDaemonAndWhileDisconnectedFromNowhereElse) {
    daemon.answer("pausedMinutes", 1440U);
    daemon.answer("dictionaryForPath:withDirSizes:", 2);
    EXPECT_EQ(state->pausedMinutes(), 1440U);
    EXPECT_EQ(state->dictionaryForPath("/b", true), Value(2));
    state->setFileTypeToggle("Music", 3U);
    EXPECT_TRUE(daemon.waitForCalls("setFileTypeToggle:toggle:"));
    EXPECT_EQ(daemon.calls(), (Calls{{"pausedMinutes", {}},
                                     {"dictionaryForPath:withDirSizes:", {"/b", 1}},
                                     {"setFileTypeToggle:toggle:", {"Music", 3U}}}));
    daemon.stop();
    static_cast<void>(state->automaticMode()); // meets the loss
    ASSERT_FALSE(state->connected());
    daemon.forgetCalls();
    EXPECT_EQ(state->pausedMinutes(), 0U);
    EXPECT_EQ(state->dictionaryForPath("/b", true), Value());
    state->setFileTypeToggle("Music", 3U);
    EXPECT_EQ(daemon.calls(), Calls());
    EXPECT_EQ(state->proxy(), nullptr);
}

TEST_F(Answers, OfTheLastDictionaryAreNothingBeforeThereIsOneAndOutliveTheLink) {
    EXPECT_EQ(state->quotaMB() + state->pendingFileSize(), 0U);
    EXPECT_EQ(state->statusString(), Value());
    EXPECT_FALSE(state->paused() || state->pendingFileSizeAvailable() || state->pendingFileCountAvailable());
    daemon.changeWorld([](DaemonWorld& world) {
        world.state = Dictionary{
            {"quotaMB", 2047U}, {"pendingFileSize", 1ULL << 41U}, {"statusString", "busy"}, {"paused", true}};
    });
    state->updateDaemonState();
    daemon.setState("paused", false); // not seen until the next time
    for (const bool connected : {true, false}) {
        EXPECT_EQ(state->connected(), connected);
        EXPECT_EQ(state->quotaMB(), 2047U);
        EXPECT_EQ(state->quotaGB(), 1U) << "whole ones";
        EXPECT_EQ(state->pendingFileSize(), 1ULL << 41U);
        EXPECT_EQ(state->statusString(), Value("busy"));
        EXPECT_TRUE(state->paused() && state->pendingFileSizeAvailable());
        EXPECT_FALSE(state->pendingFileCountAvailable());
        EXPECT_EQ(daemon.calls(), (Calls{{"daemonState", {}}}));
        loseDaemon();
    }
}

// A daemon that does not know a method never answers it.
TEST_F(Answers, ToMethodsOfAnExtensionAreAskedForWhileThisDaemonNamesIt) {
    daemon.changeWorld([](DaemonWorld& world) {
        world.state = Dictionary{
            {"extensions", Array{7, "alerts"}},
            {"alerts", Array{"no alert", dictionaryOf({"full", "error", "T", "text", {5}, {"keep:a:b"}}),
                             Dictionary{{"id", "odd"}, {"actions", 3}}}}};
    });
    daemon.answer("performAlertAction:ofAlert:", "Not now.");
    daemon.answer("dismissAlert:", "");
    EXPECT_EQ(state->performAlertAction("keep:a:b", "full"), "") << "before it has named it";
    state->updateDaemonState();
    EXPECT_EQ(state->performAlertAction("keep:a:b", "full"), "Not now.");
    EXPECT_EQ(state->dismissAlert("full"), "");
    EXPECT_EQ(daemon.calls(), (Calls{{"daemonState", {}},
                                     {"performAlertAction:ofAlert:", {"keep:a:b", "full"}},
                                     {"dismissAlert:", {"full"}}}));
    ASSERT_EQ(state->alerts().size(), 2U);
    EXPECT_EQ(dictionaryOf(state->alerts()[0]), daemon.world().state["alerts"].array()[1]);
    EXPECT_EQ(state->alerts()[1].id, "odd");

    loseDaemon();
    daemon.setState("extensions", Array());
    ASSERT_TRUE(daemon.start());
    ASSERT_TRUE(loop->runUntil([this] {
        loop->advance(1s);
        return state->connected();
    }));
    EXPECT_EQ(state->alerts().size(), 2U) << "what it last said";
    EXPECT_EQ(state->dismissAlert("full"), "") << "another daemon may be there now";
    EXPECT_EQ(daemon.callCount("dismissAlert:"), 1U);
}

TEST_F(Answers, OfAWrongKindReadAsNothing) {
    daemon.answer("pausedMinutes", "many");
    daemon.answer("automaticMode", Array{1});
    daemon.answer("getFileTypeToggle:", Data{1});
    EXPECT_EQ(state->pausedMinutes() + state->getFileTypeToggle("Music"), 0U);
    EXPECT_FALSE(state->automaticMode());
    daemon.answerWithGarbage("pausedMinutes");
    EXPECT_EQ(state->pausedMinutes(), 0U);
    EXPECT_EQ(logged("Failed to unserialize response: ").size(), 1U);
    // The link has come through all this.
    daemon.sendToPanes(Data(36, 'x'));
    daemon.answer("serverURL", "example.net");
    EXPECT_EQ(state->serverURL(), "example.net");
    EXPECT_EQ(logged("KelvaneSocket Expecting a UUID, got something else...").size(), 1U);
}

} // namespace
} // namespace kelvane::tests
