#include "Tests/Tools/KelvanectlFixture.h"

#include <csignal>
#include <regex>

namespace kelvane::tests {
namespace {

class KelvanectlWatch : public Kelvanectl {
protected:
    // Returns the text after the time of the next event, which must arrive.
    static std::string nextEvent(ChildProgram& watch) {
        static const std::regex form(R"re((\d\d:\d\d:\d\d\.\d{3}  |)re"
                                     R"re(\{"time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z",)(.*))re");
        const std::string line = watch.readLine().value_or("nothing");
        std::smatch match;
        return std::regex_match(line, match, form) ? match[2].str() : "no event: " + line;
    }
    static void expectEndBy(ChildProgram& watch, int signal) {
        watch.send(signal);
        const ChildProgram::Result result = watch.finish();
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output + result.errors, "");
    }
    [[nodiscard]] std::string connected() const { return "connected       " + socket_; }
};

TEST_F(KelvanectlWatch, WritesALineOrAnObjectForEachEvent) {
    daemon_.changeWorld([](DaemonWorld& world) {
        world.state = Dictionary{{"serviceState", 7U}, {"text", "a\nb"}, {"pendingFileCount", 1U}};
    });
    const auto watch = start({"watch"});
    const auto objects = start({"watch", "--json"});
    EXPECT_EQ(nextEvent(*watch), connected());
    EXPECT_EQ(nextEvent(*objects), R"("event":"connected","daemon":")" + socket_ + "\"}");
    EXPECT_EQ(
        nextEvent(*watch),
        R"(state           serviceState 7 (Scanning for changed files), text "a\nb", pendingFileCount 1)");
    EXPECT_EQ(nextEvent(*objects), R"("event":"state","changed":["serviceState","text","pendingFileCount"],)"
                                   R"("state":{"serviceState":7,"text":"a\nb","pendingFileCount":1}})");
    ASSERT_TRUE(daemon_.waitForCalls("setStateHandler", 2) && daemon_.waitForCalls("setAlertHandler", 2));
    daemon_.callPanes("setAlertStrings:", {Value(Array{"a|\x1b", "c"})});
    EXPECT_EQ(nextEvent(*watch), R"(setAlertStrings: ["a|\u001b","c"])");
    EXPECT_EQ(nextEvent(*objects), R"("event":"setAlertStrings:","arguments":[["a|\u001b","c"]]})");
    daemon_.changeWorld([](DaemonWorld& world) {
        world.state = Dictionary{{"serviceState", 8U}, {"text", "a\nb"}, {"new", 1.5}};
    });
    EXPECT_EQ(nextEvent(*watch), "state           serviceState 8 (Idle), new 1.5, pendingFileCount removed");
    expectEndBy(*watch, SIGINT);
    EXPECT_TRUE(nextEvent(*objects).starts_with(R"("event":"state","changed":["serviceState","new",)"));
    daemon_.stop();
    EXPECT_EQ(nextEvent(*objects), R"("event":"disconnected"})");
    expectEndBy(*objects, SIGTERM);
}

TEST_F(KelvanectlWatch, WaitsForADaemonAndSaysEachLossAndEachReturnOnce) {
    daemon_.stop();
    const auto watch = start({"--timeout", "2", "watch"});
    ASSERT_TRUE(watch->waitFor(ChildProgram::Stream::Errors));
    ASSERT_TRUE(daemon_.start());
    EXPECT_EQ(nextEvent(*watch), connected());
    EXPECT_TRUE(nextEvent(*watch).starts_with("state "));
    for (const std::string count : {"100", "101"}) {
        daemon_.stop();
        EXPECT_EQ(nextEvent(*watch), "disconnected");
        daemon_.setState("pendingFileCount", std::stoi(count));
        ASSERT_TRUE(daemon_.start());
        EXPECT_EQ(nextEvent(*watch), connected());
        // No other event is in between, and only changed entries are reported.
        EXPECT_EQ(nextEvent(*watch), "state           pendingFileCount " + count);
    }
    watch->send(SIGINT);
    expectFailure(watch->finish(), 0, "no daemon answers at " + socket_ + " yet; waiting for one");
}

TEST_F(KelvanectlWatch, CountsADaemonThatStopsAnsweringAsLost) {
    auto hold = daemon_.hold("daemonState");
    const auto watch = start({"--timeout", "0.3", "watch"});
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(nextEvent(*watch), connected());
        EXPECT_EQ(nextEvent(*watch), "disconnected    no answer within 0.3 s");
    }
    EXPECT_EQ(nextEvent(*watch), connected());
    hold = nullptr;
    std::string event;
    while (!(event = nextEvent(*watch)).starts_with("state "))
        ASSERT_TRUE(event.starts_with("disconnected ") || event == connected()) << event;
    expectEndBy(*watch, SIGINT);
}

TEST_F(KelvanectlWatch, EndsWhateverItWaitsFor) {
    daemon_.setState("statusString", std::string(200000, 'x')); // more than a pipe's buffer
    const auto unread = start({"watch"});
    EXPECT_EQ(nextEvent(*unread), connected());
    ASSERT_TRUE(unread->waitFor(ChildProgram::Stream::Output));
    unread->send(SIGTERM);
    EXPECT_EQ(unread->finish(ChildProgram::Reading::NoMore).status, 0);

    daemon_.forgetCalls();
    const FakeDaemon::Hold hold = daemon_.hold("daemonState");
    const auto unanswered = start({"--timeout", "1000", "watch"});
    EXPECT_EQ(nextEvent(*unanswered), connected());
    ASSERT_TRUE(daemon_.waitForCalls("daemonState"));
    expectEndBy(*unanswered, SIGINT);

    const auto abandoned = start({"watch"});
    EXPECT_EQ(nextEvent(*abandoned), connected());
    abandoned->closeOutput();
    EXPECT_EQ(abandoned->finish().status, 0);
}

} // namespace
} // namespace kelvane::tests
