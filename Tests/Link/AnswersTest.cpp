#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

using S = BackupState;
using Calls = std::vector<ReceivedCall>;

// An operation of BackupState that is a call of the daemon.
struct Operation {
    std::function<Value(BackupState&)> run;
    ReceivedCall call;
    Value answer;       // the daemon's, and what comes back then
    Value disconnected; // what comes back without a daemon
};
template <class Member, class... Given>
Operation query(const char* selector, Member member, Value answer, Value disconnected,
                const Given&... arguments) {
    return {[=](BackupState& state) { return Value((state.*member)(arguments...)); },
            {selector, {Value(arguments)...}},
            std::move(answer),
            std::move(disconnected)};
}
template <class Member, class... Given>
Operation command(const char* selector, Member member, const Given&... arguments) {
    const auto run = [=](BackupState& state) {
        (state.*member)(arguments...);
        return Value();
    };
    return {run, {selector, {Value(arguments)...}}, {}, {}};
}

std::vector<Operation> operations() {
    using OfPath = Value (S::*)(const std::string&) const;
    using OfPathAndFlag = Value (S::*)(const std::string&, bool) const;
    using SetText = void (S::*)(const std::string&, const std::string&);
    return {
        query("automaticMode", &S::automaticMode, true, false),
        query("pausedMinutes", &S::pausedMinutes, 1440U, 0U),
        query("marketingMessage", &S::marketingMessage, "Hello", {}),
        query("dictionaryForPath:", static_cast<OfPath>(&S::dictionaryForPath), 1, {}, "/b"),
        query("dictionaryForPath:withDirSizes:", static_cast<OfPathAndFlag>(&S::dictionaryForPath), 2, {},
              "/b", true),
        query("childrenDictionariesForPath:", &S::childrenDictionariesForPath, 3, {}, "/b"),
        query("stringValueForProfileKey:", &S::stringValueForProfileKey, "blue", {}, "Color"),
        query("getFileTypeToggle:", &S::getFileTypeToggle, 9U, 0U, "Music"),
        command("setLowerPriorityMode:", &S::setLowerPriorityMode, true),
        command("setAutomaticMode:", &S::setAutomaticMode, false),
        command("setPausedMinutes:", &S::setPausedMinutes, 4294967295U),
        command("setRecoverMode:", &S::setRecoverMode, true),
        command("setAccountOverQuotaTestingFlag:", &S::setAccountOverQuotaTestingFlag, true),
        command("clearAccountOverQuotaTestingFlag", &S::clearAccountOverQuotaTestingFlag),
        command("setValueForProfileKey:withString:", static_cast<SetText>(&S::setValueForProfileKey), "k",
                "v"),
        command("addFileToBackup:", &S::addFileToBackup, "/x"),
        command("removeFileFromBackup:", &S::removeFileFromBackup, "/x"),
        command("setPriorityBackup:", &S::setPriorityBackup, "/x"),
        command("setFileTypeToggle:toggle:", &S::setFileTypeToggle, "Music", 2U),
        command("setAlertHandler", &S::setAlertHandler),
        command("endAlertHandler", &S::endAlertHandler),
        command("setStateHandler", &S::setStateHandler),
        command("endStateHandler", &S::endStateHandler),
        command("terminate", &S::terminateDaemon),
    };
}

// An entry of the last dictionary.
struct Entry {
    const char* key;
    std::function<Value(const BackupState&)> get;
    Value value;
};
template <class Member>
Entry entry(const char* key, Member member, Value value) {
    return {key, [member](const BackupState& state) { return Value((state.*member)()); }, std::move(value)};
}
const auto entries = {entry("backedUpFileCount", &S::backedUpFileCount, 4294967295U),
                      entry("backedupFileSize", &S::backedupFileSize, 1ULL << 40U),
                      entry("pendingFileCount", &S::pendingFileCount, 3U),
                      entry("pendingFileSize", &S::pendingFileSize, 1ULL << 41U),
                      entry("currentBackupFile", &S::currentBackupFile, "/a"),
                      entry("currentRestoreFile", &S::currentRestoreFile, Array{1}),
                      entry("statusString", &S::statusString, "busy"),
                      entry("backupState", &S::backupState, 26U),
                      entry("currentRestoreJob", &S::currentRestoreJob, 7U),
                      entry("isBackupNeeded", &S::isBackupNeeded, true),
                      entry("lowerPriorityMode", &S::lowerPriorityMode, true),
                      entry("paused", &S::paused, true),
                      entry("recoverMode", &S::recoverMode, true),
                      entry("serviceState", &S::serviceState, 17U),
                      entry("isOverQuota", &S::isOverQuota, true),
                      entry("quotaMB", &S::quotaMB, 2047U),
                      entry("backupControlFlags", &S::getBackupControl, 0x80000001U)};

class Answers : public BackupStateTest {
protected:
    void SetUp() override { connect(); }
};

TEST_F(Answers, ComeFromTheDaemonAndWhileDisconnectedFromNowhereElse) {
    for (const Operation& operation : operations()) {
        daemon.forgetCalls();
        daemon.answer(operation.call.selector, operation.answer);
        EXPECT_EQ(operation.run(*state), operation.answer) << operation.call.selector;
        EXPECT_TRUE(daemon.waitForCalls(operation.call.selector));
        EXPECT_EQ(daemon.calls(), Calls{operation.call});
    }
    daemon.stop();
    static_cast<void>(state->automaticMode()); // meets the loss
    ASSERT_FALSE(state->connected());
    daemon.forgetCalls();
    for (const Operation& operation : operations())
        EXPECT_EQ(operation.run(*state), operation.disconnected) << operation.call.selector;
    EXPECT_EQ(daemon.calls(), Calls());
    EXPECT_EQ(state->proxy(), nullptr);
}

TEST_F(Answers, OfTheLastDictionaryAreNothingBeforeThereIsOneAndOutliveTheLink) {
    for (const Entry& each : entries) {
        EXPECT_TRUE(each.get(*state).isAbsent() || each.get(*state) == Value(0)) << each.key;
        daemon.setState(each.key, each.value);
    }
    state->updateDaemonState();
    daemon.setState("paused", false); // not seen until the next time
    for (const bool connected : {true, false}) {
        for (const Entry& each : entries)
            EXPECT_EQ(each.get(*state), each.value) << each.key;
        EXPECT_EQ(state->quotaGB(), 1U) << "whole ones";
        EXPECT_EQ(state->connected(), connected);
        EXPECT_EQ(daemon.calls(), (Calls{{"daemonState", {}}}));
        loseDaemon();
    }
}

TEST_F(Answers, TellWhetherTheDictionaryHasAnEntry) {
    const std::pair<std::string, bool (S::*)() const> cases[] = {
        {"backedUpFileCount", &S::backedUpFileCountAvailable},
        {"backedupFileSize", &S::backedupFileSizeAvailable},
        {"pendingFileCount", &S::pendingFileCountAvailable},
        {"pendingFileSize", &S::pendingFileSizeAvailable}};
    for (const auto& [key, get] : cases) {
        daemon.answer("daemonState", Dictionary{{key, 0}});
        state->updateDaemonState();
        for (const auto& [other, isAvailable] : cases)
            EXPECT_EQ((*state.*isAvailable)(), key == other) << key << ", " << other;
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

TEST_F(Answers, OfSelectorsThatNoDaemonHasAreErrorsWhileConnected) {
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"setBackupControl:turnOff:", [this] { state->setBackupControl(1U); }},
        {"setBackupControl:turnOff:", [this] { state->setBackupControl(1U, true); }},
        {"intValueForProfileKey:", [this] { EXPECT_EQ(state->intValueForProfileKey("k"), 0); }},
        {"setValueForProfileKey:withUnsigned:", [this] { state->setValueForProfileKey("k", 4294967295U); }}};
    for (const auto& [selector, call] : cases) {
        try {
            call();
            ADD_FAILURE() << selector << " did not throw";
        } catch (const UnknownSelector& error) {
            EXPECT_NE(std::string_view(error.what()).find(selector), std::string_view::npos);
        }
    }
    loseDaemon();
    for (const auto& [selector, call] : cases)
        EXPECT_NO_THROW(call()) << selector;
    EXPECT_EQ(daemon.calls(), Calls());
    EXPECT_EQ(logged("-["), std::vector<std::string>(
                                2, "-[BackupState setValueForProfileKey:withUnsigned:]: k = 4294967295"));
}

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

} // namespace
} // namespace kelvane::tests
