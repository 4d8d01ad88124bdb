#include "Tests/Tools/KelvanectlFixture.h"

#include <csignal>
#include <nlohmann/json.hpp>
#include <regex>

namespace kelvane::tests {
namespace {

using Json = nlohmann::ordered_json;

class KelvanectlWatch : public Kelvanectl {
protected:
    void SetUp() override { ASSERT_TRUE(daemon_.start()); }

    // The next event without its time, which must be there.
    static std::string nextEvent(ChildProgram& watch) {
        static const std::regex form(R"(\d\d:\d\d:\d\d\.\d{3}  (.*))");
        const std::string line = watch.readLine().value_or("nothing");
        std::smatch match;
        return std::regex_match(line, match, form) ? match[1].str() : "no event: " + line;
    }
    static Json nextObject(ChildProgram& watch) {
        Json object = Json::parse(watch.readLine().value_or("null"));
        static const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)");
        EXPECT_TRUE(std::regex_match(object["time"].get<std::string>(), form));
        object.erase("time");
        return object;
    }
    static void expectEndBy(ChildProgram& watch, int signal) {
        watch.send(signal);
        const ChildProgram::Result result = watch.finish();
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "");
    }
    [[nodiscard]] std::string connected() const { return "connected       " + socket_; }
};

TEST_F(KelvanectlWatch, WritesALineForEachEvent) {
    daemon_.changeWorld([](DaemonWorld& world) {
        world.state = Dictionary{{"serviceState", 7U}, {"statusString", "a\nb"}, {"pendingFileCount", 1U}};
    });
    const auto watch = start({"watch"});
    EXPECT_EQ(nextEvent(*watch), connected());
    EXPECT_EQ(nextEvent(*watch), "state           serviceState 7 (Scanning for changed files), "
                                 "statusString \"a\\nb\", pendingFileCount 1");
    ASSERT_TRUE(daemon_.waitForCalls("setStateHandler"));
    ASSERT_TRUE(daemon_.waitForCalls("setAlertHandler"));
    daemon_.callPanes("fileChanged:", {"/a\x1b"});
    daemon_.callPanes("statesChanged:", {Value(Array{3, 4})});
    daemon_.callPanes("stateChanged:", {51});
    EXPECT_EQ(nextEvent(*watch), "fileChanged:    \"/a\\u001b\"");
    EXPECT_EQ(nextEvent(*watch), "statesChanged:  [3,4]");
    EXPECT_EQ(nextEvent(*watch), "stateChanged:   51");
    daemon_.changeWorld([](DaemonWorld& world) {
        world.state = Dictionary{{"serviceState", 8U}, {"statusString", "a\nb"}, {"new", 1.5}};
    });
    EXPECT_EQ(nextEvent(*watch), "state           serviceState 8 (Idle), new 1.5, pendingFileCount gone");
    expectEndBy(*watch, SIGINT);
}

TEST_F(KelvanectlWatch, WritesAnObjectALineForPrograms) {
    daemon_.changeWorld([](DaemonWorld& world) { world.state = Dictionary{{"serviceState", 7U}}; });
    const auto watch = start({"watch", "--json"});
    EXPECT_EQ(nextObject(*watch), Json::object({{"event", "connected"}, {"daemon", socket_}}));
    EXPECT_EQ(nextObject(*watch),
              Json::parse(R"({"event":"state","changed":["serviceState"],"state":{"serviceState":7}})"));
    daemon_.callPanes("setAlertStrings:", {Value(Array{"a|b", "c"})});
    EXPECT_EQ(nextObject(*watch), Json::parse(R"({"event":"setAlertStrings:","arguments":[["a|b","c"]]})"));
    daemon_.stop();
    EXPECT_EQ(nextObject(*watch), Json::object({{"event", "disconnected"}}));
    expectEndBy(*watch, SIGTERM);
}

TEST_F(KelvanectlWatch, SaysEachLossAndEachReturnOnce) {
    const auto watch = start({"watch"});
    EXPECT_EQ(nextEvent(*watch), connected());
    EXPECT_EQ(nextEvent(*watch).substr(0, 6), "state ");
    for (std::uint32_t round = 0; round < 2; ++round) {
        daemon_.stop();
        EXPECT_EQ(nextEvent(*watch), "disconnected");
        daemon_.setState("pendingFileCount", 100 + round);
        ASSERT_TRUE(daemon_.start());
        EXPECT_EQ(nextEvent(*watch), connected());
        // Nothing stands in between, and only what has changed meanwhile is told.
        EXPECT_EQ(nextEvent(*watch), "state           pendingFileCount " + std::to_string(100 + round));
    }
    expectEndBy(*watch, SIGINT);
}

TEST_F(KelvanectlWatch, WaitsForADaemonThatIsNotThereYet) {
    daemon_.stop();
    const auto watch = start({"--timeout", "0.1", "watch"});
    ASSERT_TRUE(watch->waitForErrors());
    ASSERT_TRUE(daemon_.start());
    EXPECT_EQ(nextEvent(*watch), connected());
    watch->send(SIGTERM);
    expectFailure(watch->finish(), 0, "no daemon answers at " + socket_ + " yet; waiting for one");
}

TEST_F(KelvanectlWatch, CountsADaemonThatStopsAnsweringAsLost) {
    const auto hold = std::make_unique<FakeDaemon::Hold>(daemon_.hold("daemonState"));
    const auto watch = start({"--timeout", "0.3", "watch"});
    EXPECT_EQ(nextEvent(*watch), connected());
    EXPECT_EQ(nextEvent(*watch), "disconnected    no answer within 0.3 s");
    EXPECT_EQ(nextEvent(*watch), connected());
    *hold = nullptr;
    std::string event;
    while ((event = nextEvent(*watch)).starts_with("disconnected ") || event == connected())
        ;
    EXPECT_EQ(event.substr(0, 6), "state ");
    expectEndBy(*watch, SIGINT);
}

TEST_F(KelvanectlWatch, IsInterruptedWhileTheDaemonDoesNotAnswer) {
    const FakeDaemon::Hold hold = daemon_.hold("daemonState");
    const auto watch = start({"--timeout", "1000", "watch"});
    EXPECT_EQ(nextEvent(*watch), connected());
    ASSERT_TRUE(daemon_.waitForCalls("daemonState"));
    expectEndBy(*watch, SIGINT);
}

TEST_F(KelvanectlWatch, IsInterruptedWhileItsReaderDoesNotRead) {
    daemon_.setState("statusString", std::string(200000, 'x')); // more than a pipe holds
    const auto watch = start({"watch"});
    EXPECT_EQ(nextEvent(*watch), connected());
    ASSERT_TRUE(watch->waitForUnread(60000));
    watch->send(SIGTERM);
    EXPECT_EQ(watch->finish(ChildProgram::Reading::NoMore).status, 0);
}

TEST_F(KelvanectlWatch, EndsWhenNobodyReadsAnyMore) {
    const auto watch = start({"watch"});
    EXPECT_EQ(nextEvent(*watch), connected());
    watch->closeOutput();
    const ChildProgram::Result result = watch->finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
}

} // namespace
} // namespace kelvane::tests
