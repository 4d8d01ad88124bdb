#include "Support/DefaultsDB.h"
#include "Tests/Link/LinkTest.h"

#include <filesystem>

namespace kelvane::tests {
namespace {

// One kept value, and how to make the daemon answer it.
struct Kept {
    const char* storeKey;
    std::function<Value(const BackupState&)> get;
    std::function<void(FakeDaemon&, const Value&)> answer;
};

Kept answeredTo(const char* selector, const char* storeKey, std::function<Value(const BackupState&)> get) {
    return {storeKey, std::move(get),
            [selector](FakeDaemon& daemon, const Value& value) { daemon.answer(selector, value); }};
}
const Kept keptTexts[] = {
    answeredTo("serverURL", "lastServerURLStr",
               [](const BackupState& state) { return Value(state.serverURL()); }),
    answeredTo("stringValueForProfileKey:", "lastSkinIdStr",
               [](const BackupState& state) { return Value(state.skinId()); }),
    answeredTo("userEmail", "lastAcctEmailStr",
               [](const BackupState& state) { return Value(state.userEmail()); }),
};
const Kept keptNumber = answeredTo("computerNumber", "lastComputerNumberInt",
                                   [](const BackupState& state) { return state.computerNumber(); });

// What was kept before, what the daemon answers, and what is given and kept then.
struct Case {
    Value keptBefore;
    Value answer;
    Value given;
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
    void check(const Kept& kept, const Case& given) {
        keep(kept.storeKey, given.keptBefore);
        kept.answer(daemon, given.answer);
        const Value result = kept.get(*state);
        const std::string name = std::string(kept.storeKey) + " for " + given.answer.description();
        EXPECT_EQ(result, given.given) << name;
        EXPECT_EQ(result.isString() ? Value(DefaultsDB::stringProperty(kept.storeKey).value_or("nothing"))
                                    : Value(DefaultsDB::intProperty(kept.storeKey)),
                  Value(result.isString() ? result : Value(given.given.int32Value())))
            << name;
        EXPECT_TRUE(DefaultsDB::lastReadOK()) << name;
    }
};

TEST_F(KeptValues, AreWhatTheDaemonSaidLast) {
    connect();
    for (const Kept& kept : keptTexts)
        for (const Case& each :
             {Case{{}, "", ""}, Case{"", "first", "first"}, Case{"first", "first", "first"},
              Case{"first", "second", "second"}, Case{"second", "", ""}, Case{"second", {}, ""},
              Case{"second", 12, ""}, Case{7, "third", "third"}})
            check(kept, each);
    for (const Case& each : {Case{{}, 0, 0}, Case{0, 5, 5}, Case{5, 5, 5}, Case{5, 6, 6}, Case{6, {}, 0},
                             Case{6, "text", 0}, Case{"x", 0, 0}, Case{6, 4294967295U, 4294967295U}})
        check(keptNumber, each);
}

TEST_F(KeptValues, AreShownWhileDisconnected) {
    for (const Kept& kept : keptTexts) {
        EXPECT_EQ(kept.get(*state), Value("")) << kept.storeKey;
        keep(kept.storeKey, "kept");
        EXPECT_EQ(kept.get(*state), Value("kept")) << kept.storeKey;
    }
    EXPECT_EQ(keptNumber.get(*state), Value(0));
    keep(keptNumber.storeKey, 815);
    EXPECT_EQ(keptNumber.get(*state), Value(815));
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
    EXPECT_FALSE(state->isQuotaLimited());
    EXPECT_FALSE(DefaultsDB::lastReadOK());
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
    EXPECT_EQ(daemon.callCount("daemonState"), daemon.calls().size());
}

} // namespace
} // namespace kelvane::tests
