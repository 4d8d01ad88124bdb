#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

using Calls = std::vector<ReceivedCall>;

// One operation of BackupState: what it gives, connected and afterwards, and which call the daemon sees.
struct Operation {
    std::string name;
    std::function<Value(BackupState&)> run;
    Value connected;
    Value disconnected;
    Calls calls;
};

template <class Function>
Operation state(const char* key, Function get, const Value& value) {
    return {key, [get](BackupState& state) { return Value((state.*get)()); }, value, value, {}};
}
Operation query(ReceivedCall call, std::function<Value(BackupState&)> run, Value connected,
                Value disconnected) {
    return {call.selector, std::move(run), std::move(connected), std::move(disconnected), {call}};
}
template <class Result, class... Taken, class... Given>
Operation command(const char* selector, Result (BackupState::*send)(Taken...), const Given&... arguments) {
    const auto run = [=](BackupState& state) {
        (state.*send)(arguments...);
        return Value();
    };
    return {selector, run, {}, {}, {{selector, {Value(arguments)...}}}};
}

// Differs in every entry from what the daemon answers when it is asked for it itself.
Value stateDictionary() {
    return Dictionary{{"backedUpFileCount", 4294967295U},
                      {"backedupFileSize", 1ULL << 40U},
                      {"pendingFileCount", 3U},
                      {"currentBackupFile", "/a"},
                      {"currentRestoreFile", Array{1}},
                      {"statusString", "busy"},
                      {"backupState", 26U},
                      {"currentRestoreJob", 7U},
                      {"isBackupNeeded", true},
                      {"lowerPriorityMode", true},
                      {"paused", true},
                      {"recoverMode", true},
                      {"serviceState", 17U},
                      {"isOverQuota", true},
                      {"quotaMB", 2047U},
                      {"backupControlFlags", 0x80000001U}};
}

std::vector<Operation> dictionaryGetters() {
    using S = BackupState;
    return {state("backedUpFileCount", &S::backedUpFileCount, 4294967295U),
            state("backedUpFileCountAvailable", &S::backedUpFileCountAvailable, true),
            state("backedupFileSize", &S::backedupFileSize, 1ULL << 40U),
            state("backedupFileSizeAvailable", &S::backedupFileSizeAvailable, true),
            state("pendingFileCount", &S::pendingFileCount, 3U),
            state("pendingFileCountAvailable", &S::pendingFileCountAvailable, true),
            state("pendingFileSize", &S::pendingFileSize, 0U),
            state("pendingFileSizeAvailable", &S::pendingFileSizeAvailable, false),
            state("currentBackupFile", &S::currentBackupFile, "/a"),
            state("currentRestoreFile", &S::currentRestoreFile, Array{1}),
            state("statusString", &S::statusString, "busy"),
            state("backupState", &S::backupState, 26U),
            state("currentRestoreJob", &S::currentRestoreJob, 7U),
            state("isBackupNeeded", &S::isBackupNeeded, true),
            state("lowerPriorityMode", &S::lowerPriorityMode, true),
            state("paused", &S::paused, true),
            state("recoverMode", &S::recoverMode, true),
            state("serviceState", &S::serviceState, 17U),
            state("isOverQuota", &S::isOverQuota, true),
            state("quotaMB", &S::quotaMB, 2047U),
            state("quotaGB", &S::quotaGB, 1U),
            state("getBackupControl", &S::getBackupControl, 0x80000001U)};
}

std::vector<Operation> queries() {
    using S = BackupState&;
    return {
        query(
            {"automaticMode", {}}, [](S s) { return s.automaticMode(); }, true, false),
        query(
            {"pausedMinutes", {}}, [](S s) { return s.pausedMinutes(); }, 1440U, 0U),
        query({"marketingMessage", {}}, [](S s) { return s.marketingMessage(); }, "Hello", {}),
        query({"dictionaryForPath:", {"/b"}}, [](S s) { return s.dictionaryForPath("/b")["size"]; }, 12U, {}),
        query({"dictionaryForPath:withDirSizes:", {"/b", 1}},
              [](S s) { return s.dictionaryForPath("/b", true)["size"]; }, 42U, {}),
        query({"childrenDictionariesForPath:", {"/b"}},
              [](S s) { return s.childrenDictionariesForPath("/b").at(0)["fileName"]; }, "c", {}),
        query({"stringValueForProfileKey:", {"Color"}},
              [](S s) { return s.stringValueForProfileKey("Color"); }, "blue", {}),
        query(
            {"getFileTypeToggle:", {"Music"}}, [](S s) { return s.getFileTypeToggle("Music"); }, 9U, 0U),
        query(
            {"serverURL", {}}, [](S s) { return s.serverURL(); }, "example.net", "example.net"),
        query(
            {"computerNumber", {}}, [](S s) { return s.computerNumber(); }, 99, 99),
        query(
            {"stringValueForProfileKey:", {"SkinId"}}, [](S s) { return s.skinId(); }, "plain", "plain"),
        query(
            {"userEmail", {}}, [](S s) { return s.userEmail(); }, "a@example.net", "a@example.net"),
    };
}

std::vector<Operation> commands() {
    using S = BackupState;
    using SetText = void (S::*)(const std::string&, const std::string&);
    return {
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

class Answers : public BackupStateTest {
protected:
    void SetUp() override {
        daemon.changeWorld([](DaemonWorld& world) {
            world.state = stateDictionary();
            world.values = Dictionary{{"automaticMode", true},       {"pausedMinutes", 1440U},
                                      {"marketingMessage", "Hello"}, {"serverURL", "example.net"},
                                      {"computerNumber", 99},        {"userEmail", "a@example.net"}};
            world.profile = Dictionary{{"Color", "blue"}, {"SkinId", "plain"}};
            world.fileTypes = Dictionary{{"Music", 9U}};
            world.addFile("/b", true, 12, true);
            world.addFile("/b/c", false, 30, true);
        });
        for (const char* selector :
             {"serviceState", "getCurrentRestoreJob", "lowerPriorityMode", "recoverMode"})
            daemon.answer(selector, 0);
    }

    // A call behind which every earlier one has been received, and which is not counted.
    Calls callsOf(const Operation& operation, Value& result) {
        daemon.forgetCalls();
        result = operation.run(*state);
        static_cast<void>(state->proxy()->call<"liveStateString">());
        Calls calls = daemon.calls();
        EXPECT_EQ(calls.back().selector, "liveStateString");
        calls.pop_back();
        return calls;
    }
};

TEST_F(Answers, ComeFromTheDictionaryOrTheDaemonAndWhileDisconnectedFromNowhereElse) {
    connect();
    state->updateDaemonState();
    std::vector<Operation> operations = dictionaryGetters();
    for (const auto& more : {queries(), commands()})
        operations.insert(operations.end(), more.begin(), more.end());
    for (const Operation& operation : operations) {
        Value result;
        EXPECT_EQ(callsOf(operation, result), operation.calls) << operation.name;
        EXPECT_EQ(result, operation.connected) << operation.name << ": " << result.description();
    }
    daemon.stop();
    static_cast<void>(state->automaticMode()); // meets the loss
    ASSERT_FALSE(state->connected());
    daemon.forgetCalls();
    for (const Operation& operation : operations)
        EXPECT_EQ(operation.run(*state), operation.disconnected) << operation.name;
    EXPECT_EQ(daemon.calls(), Calls());
    EXPECT_EQ(state->proxy(), nullptr);
}

TEST_F(Answers, OfTheDictionaryAreNothingBeforeThereIsOne) {
    connect();
    for (const Operation& operation : dictionaryGetters()) {
        const Value result = operation.run(*state);
        EXPECT_TRUE(result.isAbsent() || result == Value(0))
            << operation.name << ": " << result.description();
    }
}

TEST_F(Answers, QuotaInGigabytesCountsWholeOnes) {
    connect();
    for (const auto& [megabytes, gigabytes] :
         {std::pair{1023U, 0U}, {1024U, 1U}, {1535U, 1U}, {4294967295U, 4194303U}}) {
        daemon.setState("quotaMB", megabytes);
        state->updateDaemonState();
        EXPECT_EQ(state->quotaGB(), gigabytes);
    }
}

TEST_F(Answers, OfAWrongKindReadAsNothing) {
    connect();
    daemon.answer("pausedMinutes", "many");
    daemon.answer("automaticMode", Array{1});
    daemon.answer("getFileTypeToggle:", Data{1});
    EXPECT_EQ(state->pausedMinutes(), 0U);
    EXPECT_FALSE(state->automaticMode());
    EXPECT_EQ(state->getFileTypeToggle("Music"), 0U);
    daemon.answerWithGarbage("pausedMinutes");
    EXPECT_EQ(state->pausedMinutes(), 0U);
    EXPECT_EQ(logged("Failed to unserialize response: ").size(), 1U);
    // The link has come through all this.
    daemon.sendToPanes(Data(36, 'x'));
    EXPECT_EQ(state->serverURL(), "example.net");
    EXPECT_EQ(logged("KelvaneSocket Expecting a UUID, got something else...").size(), 1U);
}

TEST_F(Answers, OfSelectorsThatNoDaemonHasAreErrorsWhileConnected) {
    const auto callAll = [this](auto check) {
        check([this] { state->setBackupControl(1U); }, "setBackupControl:turnOff:");
        check([this] { state->setBackupControl(1U, true); }, "setBackupControl:turnOff:");
        check([this] { EXPECT_EQ(state->intValueForProfileKey("k"), 0); }, "intValueForProfileKey:");
        check([this] { state->setValueForProfileKey("k", 4294967295U); },
              "setValueForProfileKey:withUnsigned:");
    };
    callAll([](auto call, const char*) { EXPECT_NO_THROW(call()); });
    connect();
    callAll([](auto call, const std::string& selector) {
        try {
            call();
            ADD_FAILURE() << selector << " did not throw";
        } catch (const UnknownSelector& error) {
            EXPECT_NE(std::string(error.what()).find(selector), std::string::npos);
        }
    });
    EXPECT_EQ(state->serverURL(), "example.net");
    EXPECT_EQ(daemon.calls(), (Calls{{"serverURL", {}}}));
    EXPECT_EQ(logged("-["), std::vector<std::string>(
                                2, "-[BackupState setValueForProfileKey:withUnsigned:]: k = 4294967295"));
}

} // namespace
} // namespace kelvane::tests
