#include "Platform/Desktop/Broadcast.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/RunUntil.h"

#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

constexpr const char* notification = "com.kelvane.notify.defaultsPropertyChanged";

// The received broadcasts, each followed by a space.
struct Heard {
    std::string senders;
    BroadcastListener listener{notification, [this](const std::string& sender) { senders += sender + ' '; }};
};

// These tests start this program again as the other process.
class BroadcastDeathTest : public testing::Test {
protected:
    static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(BroadcastDeathTest, ReachesEveryListenerUntilItEndsAlsoFromAProcessThatEndsAtOnce) {
    std::string heardFirst;
    std::unique_ptr<BroadcastListener> endsItself;
    endsItself = std::make_unique<BroadcastListener>(notification, [&](const std::string& sender) {
        heardFirst += sender + ' ';
        endsItself.reset();
    });
    const Heard last;
    EXPECT_EXIT(std::_Exit(postBroadcast(notification, "one").empty() ? 0 : 1), testing::ExitedWithCode(0),
                "");
    EXPECT_EQ(postBroadcast(notification, "two"), "");
    EXPECT_TRUE(runUntil([&] { return last.senders == "one two "; })) << last.senders;
    EXPECT_EQ(heardFirst, "one ");
}

TEST_F(BroadcastDeathTest, SaysWhyWithoutABus) {
    const EnvironmentVariable nowhere("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    const auto complaints = [] {
        return postBroadcast(notification, "one") + '\n' + Heard().listener.error() + '\n';
    };
    EXPECT_EXIT((std::cerr << complaints(), std::_Exit(0)), testing::ExitedWithCode(0),
                "/nonexistent/bus.*\n.*/nonexistent/bus");
}

} // namespace
} // namespace kelvane::tests
