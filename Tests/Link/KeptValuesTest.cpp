#include "Support/DefaultsDB.h"
#include "Tests/Link/LinkTest.h"

#include <filesystem>

namespace kelvane::tests {
namespace {

// One kept value, and the question to which the daemon answers it.
struct Kept {
    const char* selector;
    const char* key;
    Value (*get)(const BackupState&);
};
const Kept texts[] = {
    {"serverURL", "lastServerURLStr", [](const BackupState& state) { return Value(state.serverURL()); }},
    {"stringValueForProfileKey:", "lastSkinIdStr",
     [](const BackupState& state) { return Value(state.skinId()); }},
    {"userEmail", "lastAcctEmailStr", [](const BackupState& state) { return Value(state.userEmail()); }}};
const Kept number{"computerNumber", "lastComputerNumberInt",
                  [](const BackupState& state) { return state.computerNumber(); }};

// What was kept before, what the daemon answers, and what is given and kept then.
struct Case {
    Value keptBefore, answer, given;
};

class KeptValues : public BackupStateTest {
protected:
    // As another process would have left it, of any kind.
    static void keep(const char* key, const Value& value) {
        if (value.isString())
            DefaultsDB::setStringProperty(value.stringValue(), key);
        else if (value.isNumber())
            DefaultsDB::setIntProperty(value.int32Value(), key);
    }
    void check(const Kept& kept, const Case& each) {
        SCOPED_TRACE(std::string(kept.key) + " for " + each.answer.description());
        keep(kept.key, each.keptBefore);
        daemon.answer(kept.selector, each.answer);
        EXPECT_EQ(kept.get(*state), each.given);
        if (each.given.isString())
            EXPECT_EQ(DefaultsDB::stringProperty(kept.key), each.given.stringValue());
        else
            EXPECT_EQ(DefaultsDB::intProperty(kept.key), each.given.int32Value());
        EXPECT_TRUE(DefaultsDB::lastReadOK());
    }
};

TEST_F(KeptValues, AreWhatTheDaemonSaidLast) {
    connect();
    for (const Kept& kept : texts)
        for (const Case& each : {Case{{}, "", ""}, Case{"", "first", "first"},
                                 Case{"first", "second", "second"}, Case{"second", "", ""},
                                 Case{"second", {}, ""}, Case{"second", 12, ""}, Case{7, "third", "third"}})
            check(kept, each);
    EXPECT_EQ(state->skinId(), "third");
    EXPECT_EQ(daemon.calls().back(), (ReceivedCall{"stringValueForProfileKey:", {"SkinId"}}));
    for (const Case& each : {Case{{}, 0, 0}, Case{0, 5, 5}, Case{5, 6, 6}, Case{6, {}, 0}, Case{6, "text", 0},
                             Case{"x", 0, 0}, Case{6, 4294967295U, 4294967295U}})
        check(number, each);
}

TEST_F(KeptValues, AreShownWhileDisconnected) {
    for (const Kept& kept : texts) {
        EXPECT_EQ(kept.get(*state), Value("")) << kept.key;
        keep(kept.key, "kept");
        EXPECT_EQ(kept.get(*state), Value("kept")) << kept.key;
    }
    EXPECT_EQ(number.get(*state), Value(0));
    keep(number.key, 815);
    EXPECT_EQ(number.get(*state), Value(815));

    EXPECT_FALSE(state->isQuotaLimited());
    for (const auto& [kept, expected] :
         {std::pair<Value, bool>{1, true}, {0, false}, {2, false}, {"1", true}}) {
        keep("isQuotaLimited", kept);
        EXPECT_EQ(state->isQuotaLimited(), expected) << kept.description();
    }
}

TEST_F(KeptValues, SurviveADaemonThatIsLostInTheMiddleOfItsAnswer) {
    for (const Kept& kept : {texts[0], number}) {
        SCOPED_TRACE(kept.key);
        const Value before = kept.key == number.key ? Value(815) : Value("kept");
        connect();
        keep(kept.key, before);
        daemon.breakLinkAt(kept.selector);
        EXPECT_EQ(kept.get(*state), before);
        state->onEnd();
        EXPECT_EQ(kept.get(*state), before);
        daemon.stop();
    }
}

TEST_F(KeptValues, AreWrittenOnlyWhenTheyChange) {
    connect();
    daemon.changeWorld([](DaemonWorld& world) {
        world.values = Dictionary{{"serverURL", "a"}, {"computerNumber", 1}};
        world.state = Dictionary{{"isQuotaLimited", true}};
    });
    state->updateDaemonState();
    const auto readAll = [this] {
        EXPECT_EQ(state->serverURL(), "a");
        EXPECT_EQ(state->computerNumber(), Value(1));
        EXPECT_TRUE(state->isQuotaLimited());
    };
    readAll();
    // What is read again is in memory; only a write would make the file anew.
    ASSERT_TRUE(std::filesystem::remove(folder / "com.kelvane.preferences.plist"));
    readAll();
    EXPECT_FALSE(std::filesystem::exists(folder / "com.kelvane.preferences.plist"));
}

TEST_F(KeptValues, QuotaLimitIsKeptAsOneOrZero) {
    connect();
    for (const int before : {0, 1, 2})
        for (const bool limited : {true, false}) {
            keep("isQuotaLimited", before);
            daemon.setState("isQuotaLimited", limited);
            state->updateDaemonState();
            EXPECT_EQ(state->isQuotaLimited(), limited);
            EXPECT_EQ(DefaultsDB::intProperty("isQuotaLimited") == 1, limited) << before;
        }
    EXPECT_EQ(daemon.callCount("daemonState"), daemon.calls().size());
}

} // namespace
} // namespace kelvane::tests
