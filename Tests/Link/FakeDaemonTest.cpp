#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

TEST_F(BackupStateTest, TheFakeDaemonAnswersEveryMethodWithTheMethodsType) {
    daemon.changeWorld([](DaemonWorld& world) { world = demoWorld(); });
    connect();
    for (const MethodDescription& method : KelvaneDaemonProtocol) {
        const auto signature = MethodSignature::fromTypes(method.types);
        std::vector<Value> arguments;
        for (const std::string_view type : signature.arguments())
            arguments.push_back(type == "@" ? Value("/home") : Value(1));
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

} // namespace
} // namespace kelvane::tests
