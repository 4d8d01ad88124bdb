#include "Support/Preferences/DefaultsDB.h"
#include "Tests/Link/LinkTest.h"

namespace kelvane::tests {
namespace {

using Calls = std::vector<ReceivedCall>;

class Answers : public BackupStateTest {
protected:
    void SetUp() override { connect(); }
};

// A call of the state, what the daemon receives, and the result when the daemon answers `answer`. Calls that
// the tests of a tab make are left out.
struct Call {
    ReceivedCall received;
    Value answer;
    Value (*make)(BackupState&);
};

using S = BackupState;
const Call everyCall[] = {
    {{"marketingMessage", {}}, "buy", [](S& s) { return s.marketingMessage(); }},
    {{"dictionaryForPath:", {"/a"}}, "d", [](S& s) { return s.dictionaryForPath("/a"); }},
    {{"getFileTypeToggle:", {"t"}}, 3U, [](S& s) { return Value(s.getFileTypeToggle("t")); }},
    {{"setAccountOverQuotaTestingFlag:", {1}},
     {},
     [](S& s) { return s.setAccountOverQuotaTestingFlag(true), Value(); }},
    {{"clearAccountOverQuotaTestingFlag", {}},
     {},
     [](S& s) { return s.clearAccountOverQuotaTestingFlag(), Value(); }},
    {{"setValueForProfileKey:withString:", {"k", "v"}},
     {},
     [](S& s) { return s.setValueForProfileKey("k", std::string("v")), Value(); }},
    {{"setPriorityBackup:", {"/f"}}, {}, [](S& s) { return s.setPriorityBackup("/f"), Value(); }},
    {{"setFileTypeToggle:toggle:", {"t", 3U}}, {}, [](S& s) { return s.setFileTypeToggle("t", 3), Value(); }},
    {{"endStateHandler", {}}, {}, [](S& s) { return s.endStateHandler(), Value(); }},
    {{"terminate", {}}, {}, [](S& s) { return s.terminateDaemon(), Value(); }},
};

TEST_F(Answers, ComeFromTheDaemonAndWhileDisconnectedFromNowhereElse) {
    Calls all;
    for (const Call& call : everyCall) {
        daemon.answer(call.received.selector, call.answer);
        EXPECT_EQ(call.make(*state), call.answer) << call.received.selector;
        all.push_back(call.received);
    }
    EXPECT_TRUE(daemon.waitForCalls("terminate"));
    EXPECT_EQ(daemon.calls(), all);
    loseDaemon();
    daemon.forgetCalls();
    for (const Call& call : everyCall) {
        const Value nothing = call.make(*state);
        EXPECT_TRUE(nothing.isAbsent() || nothing == Value(0)) << call.received.selector;
    }
    EXPECT_EQ(daemon.calls(), Calls());
    EXPECT_EQ(state->proxy(), nullptr);
}

// A key of the state dictionary, a possible value and the result of reading it.
struct Reading {
    const char* key;
    Value stored;
    Value (*read)(const BackupState&);
};
using C = const BackupState;
const Reading everyReading[] = {
    {"backedUpFileCount", ~0U, [](C& s) { return Value(s.backedUpFileCount()); }},
    {"backedupFileSize", 1ULL << 40U, [](C& s) { return Value(s.backedupFileSize()); }},
    {"pendingFileCount", 2U, [](C& s) { return Value(s.pendingFileCount()); }},
    {"pendingFileSize", 1ULL << 41U, [](C& s) { return Value(s.pendingFileSize()); }},
    {"currentBackupFile", "/b", [](C& s) { return s.currentBackupFile(); }},
    {"currentRestoreFile", "/r", [](C& s) { return s.currentRestoreFile(); }},
    {"statusString", "busy", [](C& s) { return s.statusString(); }},
    {"backupState", 3U, [](C& s) { return Value(s.backupState()); }},
    {"currentRestoreJob", 4U, [](C& s) { return Value(s.currentRestoreJob()); }},
    {"isBackupNeeded", true, [](C& s) { return Value(s.isBackupNeeded()); }},
    {"hasUnreadFiles", true, [](C& s) { return Value(s.hasUnreadFiles()); }},
    {"isQuotaLimited", true, [](C& s) { return Value(s.isQuotaLimited()); }},
    {"quotaMB", 2047U, [](C& s) { return Value(s.quotaMB()); }},
    {"backupControlFlags", 5U, [](C& s) { return Value(s.getBackupControl()); }},
    {"lastVerifiedDate", Date{7}, [](C& s) { return s.lastVerifiedDate(); }},
    {"lastVerification", "No damage", [](C& s) { return Value(s.lastVerification()); }},
    {"verificationProgress", 0.5, [](C& s) { return Value(s.verificationProgress().value_or(0)); }},
    {"damagedFileCount", 1ULL << 33U, [](C& s) { return Value(s.damagedFileCount()); }},
    {"isBackupDamaged", true, [](C& s) { return Value(s.isBackupDamaged()); }},
};
// The first four readings, in their order, are available or not.
bool (BackupState::*const areAvailable[])() const = {
    &BackupState::backedUpFileCountAvailable, &BackupState::backedupFileSizeAvailable,
    &BackupState::pendingFileCountAvailable, &BackupState::pendingFileSizeAvailable};

bool isNothing(const Value& value) {
    return value.isAbsent() || value == Value(0) || value == Value("");
}

// Each key alone, so that no other key is read instead.
TEST_F(Answers, OfTheLastDictionaryHaveTheirOwnKeysAndOutliveTheLink) {
    Dictionary all;
    for (const Reading& only : everyReading) {
        EXPECT_TRUE(isNothing(only.read(*state))) << only.key << " before it is there";
        daemon.changeWorld([&](DaemonWorld& world) { world.state = Dictionary{{only.key, only.stored}}; });
        state->updateDaemonState();
        for (const Reading& each : everyReading) {
            const Value read = each.read(*state);
            EXPECT_TRUE(&each == &only ? read == only.stored : isNothing(read))
                << each.key << " of " << only.key;
        }
        for (std::size_t index = 0; index < std::size(areAvailable); ++index)
            EXPECT_EQ((state.get()->*areAvailable[index])(), &everyReading[index] == &only) << only.key;
        all.append(only.key, only.stored);
    }
    daemon.changeWorld([&](DaemonWorld& world) { world.state = all; });
    state->updateDaemonState();
    daemon.setState("isBackupNeeded", false); // not noticed until the next update
    EXPECT_TRUE(state->isQuotaLimited()) << "which stores it";
    loseDaemon();
    for (const Reading& each : everyReading)
        EXPECT_EQ(each.read(*state), each.stored) << each.key;
    EXPECT_EQ(state->quotaGB(), 1U) << "whole ones";
    EXPECT_EQ(daemon.callCount("daemonState"), daemon.calls().size());
}

// A daemon that does not know a method never answers it.
TEST_F(Answers, ToMethodsOfAnExtensionAreAskedForWhileThisDaemonNamesIt) {
    daemon.changeWorld([](DaemonWorld& world) {
        world.state = Dictionary{
            {"extensions", Array{7, "alerts", "verify"}},
            {"verificationProgress", 7.5},
            {"alerts", Array{"no alert", dictionaryOf({"full", "error", "T", "text", {5}, {"keep:a:b"}}),
                             Dictionary{{"id", "odd"}, {"actions", 3}}}}};
    });
    daemon.answer("performAlertAction:ofAlert:", "Not now.");
    daemon.answer("dismissAlert:", "");
    daemon.answer("verify", "Not here.");
    EXPECT_EQ(state->performAlertAction("keep:a:b", "full"), "") << "before it has named it";
    state->updateDaemonState();
    EXPECT_EQ(state->performAlertAction("keep:a:b", "full"), "Not now.");
    EXPECT_EQ(state->dismissAlert("full"), "");
    EXPECT_EQ(state->verify(), "Not here.");
    EXPECT_EQ(state->verificationProgress(), 1.0) << "a hostile one";
    EXPECT_EQ(daemon.calls(), (Calls{{"daemonState", {}},
                                     {"performAlertAction:ofAlert:", {"keep:a:b", "full"}},
                                     {"dismissAlert:", {"full"}},
                                     {"verify", {}}}));
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

TEST_F(Answers, HaveNoMethodForWhatIsInNoTable) {
    const std::function<void()> unknown[] = {[&] { state->setBackupControl(5, true); },
                                             [&] { EXPECT_EQ(state->intValueForProfileKey("k"), 0); },
                                             [&] { state->setValueForProfileKey("k", 9U); }};
    for (const auto& call : unknown)
        EXPECT_THROW(call(), UnknownSelector);
    loseDaemon();
    for (const auto& call : unknown)
        EXPECT_NO_THROW(call());
    EXPECT_EQ(logged("-[BackupState setValueForProfileKey:withUnsigned:]: k = 9").size(), 2U);
    EXPECT_TRUE(daemon.calls().empty());
}

// The stored value before, the daemon's answer, and the value that is then returned and stored.
struct Case {
    Value keptBefore, answer, given;
};
using Cases = std::vector<Case>;
const Cases texts{{{}, "", ""},       {"", "first", "first"}, {"first", "second", "second"},
                  {"second", {}, ""}, {"second", 12, ""},     {7, "third", "third"}};
const Cases numbers{{{}, 0, 0},     {0, 5, 5},   {6, {}, 0},
                    {6, "text", 0}, {"x", 0, 0}, {6, 4294967295U, 4294967295U}};

// A stored value, and the method that returns it.
const struct Kept {
    const char* selector;
    const char* key;
    Value (*get)(const BackupState&);
    const Cases& cases;
} keptValues[] = {{"serverURL", "lastServerURLStr",
                   [](const BackupState& state) { return Value(state.serverURL()); }, texts},
                  {"stringValueForProfileKey:", "lastSkinIdStr",
                   [](const BackupState& state) { return Value(state.skinId()); }, texts},
                  {"userEmail", "lastAcctEmailStr",
                   [](const BackupState& state) { return Value(state.userEmail()); }, texts},
                  {"computerNumber", "lastComputerNumberInt",
                   [](const BackupState& state) { return state.computerNumber(); }, numbers}};

class KeptValues : public BackupStateTest {
protected:
    // Stores a value of any type, as another process could have.
    static void keep(const char* key, const Value& value) {
        if (value.isString())
            DefaultsDB::setStringProperty(value.stringValue(), key);
        else if (value.isNumber())
            DefaultsDB::setIntProperty(value.int32Value(), key);
    }
};

TEST_F(KeptValues, AreWhatTheDaemonSaidLast) {
    connect();
    for (const Kept& kept : keptValues)
        for (const auto& [keptBefore, answer, given] : kept.cases) {
            SCOPED_TRACE(std::string(kept.key) + " for " + answer.description());
            keep(kept.key, keptBefore);
            daemon.answer(kept.selector, answer);
            EXPECT_EQ(kept.get(*state), given);
            if (given.isString())
                EXPECT_EQ(DefaultsDB::stringProperty(kept.key), given.stringValue());
            else
                EXPECT_EQ(DefaultsDB::intProperty(kept.key), given.int32Value());
            EXPECT_TRUE(DefaultsDB::lastReadOK());
        }
    static_cast<void>(state->skinId());
    EXPECT_EQ(daemon.calls().back(), (ReceivedCall{"stringValueForProfileKey:", {"SkinId"}}));
}

TEST_F(KeptValues, AreShownWhileDisconnectedAndWhenTheDaemonIsLostInTheMiddleOfItsAnswer) {
    for (const Kept& kept : keptValues) {
        SCOPED_TRACE(kept.key);
        const bool isText = &kept.cases == &texts;
        EXPECT_EQ(kept.get(*state), isText ? Value("") : Value(0));
        const Value before = isText ? Value("kept") : Value(815);
        keep(kept.key, before);
        EXPECT_EQ(kept.get(*state), before);
        connect();
        daemon.breakLinkAt(kept.selector);
        EXPECT_EQ(kept.get(*state), before);
        state->onEnd();
        EXPECT_EQ(kept.get(*state), before);
        daemon.stop();
    }
}

TEST_F(KeptValues, QuotaLimitIsKeptAsOneOrZero) {
    EXPECT_FALSE(state->isQuotaLimited());
    for (const auto& [kept, expected] :
         {std::pair<Value, bool>{1, true}, {0, false}, {2, false}, {"1", true}}) {
        keep("isQuotaLimited", kept);
        EXPECT_EQ(state->isQuotaLimited(), expected) << kept.description();
    }
    connect();
    for (const int before : {0, 1, 2})
        for (const bool limited : {true, false}) {
            keep("isQuotaLimited", before);
            daemon.setState("isQuotaLimited", limited);
            state->updateDaemonState();
            EXPECT_EQ(state->isQuotaLimited(), limited);
            EXPECT_EQ(DefaultsDB::intProperty("isQuotaLimited") == 1, limited) << before;
        }
}

} // namespace
} // namespace kelvane::tests
