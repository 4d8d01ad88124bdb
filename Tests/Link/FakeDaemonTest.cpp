#include "Tests/Link/LinkTest.h"

#include <filesystem>

namespace kelvane::tests {
namespace {

std::size_t openDescriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// One for each type code of the tables.
Value anyArgument(std::string_view type) {
    return type == "@" ? Value("/home") : Value(1);
}

TEST_F(BackupStateTest, TheFakeDaemonAnswersEveryMethodWithTheMethodsType) {
    daemon.changeWorld([](DaemonWorld& world) { world = demoWorld(); });
    connect();
    for (const MethodDescription& method : KelvaneDaemonProtocol) {
        const auto signature = MethodSignature::fromTypes(method.types);
        std::vector<Value> arguments;
        for (const std::string_view type : signature.arguments())
            arguments.push_back(anyArgument(type));
        const Value result = state->proxy()->invoke(method.selector, arguments);
        const bool isNumber = signature.returnType != "v" && signature.returnType != "@";
        EXPECT_EQ(result.isNumber(), isNumber || method.selector == "computerNumber") << method.selector;
    }
    EXPECT_TRUE(logged("ERROR").empty());
    EXPECT_TRUE(daemon.waitForCalls(std::end(KelvaneDaemonProtocol)[-1].selector));
    EXPECT_EQ(daemon.calls().size(), std::size(KelvaneDaemonProtocol));
}

TEST_F(BackupStateTest, TheFakeDaemonAppliesWhatPanesSet) {
    daemon.changeWorld([](DaemonWorld& world) { world = demoWorld(); });
    connect();
    state->setPausedMinutes(60);
    state->setValueForProfileKey("SkinId", "other");
    state->removeFileFromBackup("/Volumes/System/home/maria/Documents");
    EXPECT_EQ(state->pausedMinutes(), 60U);
    EXPECT_EQ(state->skinId(), "other");
    EXPECT_EQ(state->dictionaryForPath("/home/maria/Documents/Contract.pdf")["backupColor"], Value(1));
    EXPECT_EQ(state->childrenDictionariesForPath("").size(), 2U);
    state->updateDaemonState();
    EXPECT_TRUE(state->paused());
}

TEST_F(LinkTest, AFakeDaemonLeavesNoDescriptorNoThreadAndNoFile) {
    const std::size_t before = openDescriptors();
    for (int round = 0; round < 50; ++round) {
        FakeDaemon other(folder / "other.sock");
        ASSERT_TRUE(other.start());
        const auto proxy = KelvaneProxy::create();
        const auto socket = KelvaneSocket::create();
        proxy->setProtocol(KelvaneDaemonProtocol);
        proxy->setSocket(socket);
        ASSERT_TRUE(socket->connectToPath(folder / "other.sock"));
        const auto hold = other.hold("setEnabled:");
        proxy->call<"setEnabled:">(true);
        if (round % 2 == 0) {
            ASSERT_TRUE(other.waitForCalls("setEnabled:"));
        }
    }
    expectNothingLeft();
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(std::filesystem::exists(folder / "other.sock"));
}

} // namespace
} // namespace kelvane::tests
