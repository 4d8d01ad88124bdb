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
