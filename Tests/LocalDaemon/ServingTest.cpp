#include "Support/Logging.h"
#include "Tests/Harness/LinkPair.h"
#include "Tests/LocalDaemon/RunningDaemon.h"

#include <cerrno>
#include <poll.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using tests::DaemonFolders;
using tests::eventually;
using tests::RunningDaemon;
using tests::TestPane;

// No thread of the link may stay behind.
class Serving : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_TRUE(eventually([] { return KelvaneSocket::liveThreads() == 0; }, 2s));
    }
    const DaemonFolders folders;
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
};

TEST_F(Serving, AnswersEveryMethodOfTheTable) {
    folders.write("configuration.plist", R"(<?xml version="1.0"?><plist version="1.0"><dict>
        <key>serverURL</key><string>backup.example.org</string><key>userEmail</key><string>joe@example.org</string>
        <key>computerNumber</key><integer>77</integer><key>quotaMB</key><integer>2048</integer></dict></plist>)");
    const RunningDaemon daemon(folders);
    TestPane pane(folders.socket());
    const std::vector<std::pair<std::string_view, std::vector<Value>>> calls = {
        {"setAutomaticMode:", {false}},
        {"setDelayShutdown:", {true}},
        {"setLowerPriorityMode:", {true}},
        {"setRecoverMode:", {true}},
        {"setIncludeRequired:", {true}},
        {"setEnabled:", {true}},
        {"setPausedMinutes:", {1440U}},
        {"setBackupControl:", {0x80000001U}},
        {"setValueForProfileKey:withString:", {"SkinId", "blue"}},
        {"setFileTypeToggle:toggle:", {"movies", 3U}},
        {"setServiceState:", {0U}},
        {"setAccountOverQuotaTestingFlag:", {true}},
        {"clearAccountOverQuotaTestingFlag", {}},
        {"setStateHandler", {}},
        {"endStateHandler", {}},
        {"setAlertHandler", {}},
        {"endAlertHandler", {}},
        {"setPriorityBackup:", {"/a"}},
        {"removeFileFromBackup:", {"/a"}},
        {"addFilesToBackup:", {Value(Array{"/a", "/b"})}},
        {"addFileToBackup:", {"/a"}},
        {"cancelAllRestoreJobs", {}},
        {"showRestoreWizard", {}},
    };
    const std::string me = std::to_string(::geteuid());
    const struct {
        std::string_view selector;
        std::vector<Value> arguments;
        Value answer;
    } questions[] = {
        {"automaticMode", {}, false},
        {"delayShutdown", {}, true},
        {"lowerPriorityMode", {}, true},
        {"recoverMode", {}, true},
        {"pausedMinutes", {}, 1440},
        {"serviceState", {}, 13},
        {"stringValueForProfileKey:", {"SkinId"}, "blue"},
        {"getFileTypeToggle:", {"movies"}, 3},
        {"serverURL", {}, "backup.example.org"},
        {"userEmail", {}, "joe@example.org"},
        {"computerNumber", {}, 77},
        {"marketingMessage", {}, ""},
        {"mappedUserAsString:", {"joe"}, "joe"},
        {"backedupStateString", {}, "0 files with 0 bytes in the backup"},
        {"liveStateString", {}, "0 files with 0 bytes on this computer"},
        {"stringForState:", {13U}, "Paused"},
        {"longlongForState:", {16U}, 0},
        {"longForState:", {35U}, 0},
        {"getCurrentRestoreJob", {}, 0},
        {"getRestoreJobStatus:", {1U}, 0},
        {"restoreFile:toPath:version:priority:", {"/a", "/b", 0U, 0U}, 0},
        {"restoreWithChoices:", {Dictionary{{"a", 1}}}, false},
        {"excludeFileFromBackup:", {"/a"}, ENOTSUP},
        {"unexcludeFileFromBackup:", {"/a"}, ENOTSUP},
        {"excludedFiles:", {"/"}, Array()},
        {"policyExcludeList", {}, Array()},
        {"childrenDictionariesForPath:", {"/"}, Array()},
        {"backupColorsForFiles:", {Value(Array{"/a", "/b"})}, Array{0, 0}},
        {"dictionaryForPath:", {"/"}, Value()},
        {"dictionaryForPath:withDirSizes:", {"/", true}, Value()},
    };
    std::set<std::string_view> asked{"daemonState", "terminate"}; // have tests of their own
    for (const auto& [selector, arguments] : calls) {
        pane.invoke(selector, arguments);
        asked.insert(selector);
    }
    for (const auto& [selector, arguments, answer] : questions) {
        EXPECT_EQ(pane.invoke(selector, arguments), answer) << selector;
        asked.insert(selector);
    }
    EXPECT_EQ(asked.size(), std::size(KelvaneDaemonProtocol));
}

TEST_F(Serving, SpeaksTheWholeStateDictionaryInItsKinds) {
    folders.write("home/a/file", "12345");
    folders.write("home/file", "1");
    const RunningDaemon daemon(folders);
    TestPane pane(folders.socket());
    ASSERT_TRUE(pane.waitFor([&] { return pane.call<"serviceState">() == 5; }));
    pane.call<"setBackupControl:">(4U);
    const Value expected = Dictionary{
        {"backedUpFileCount", 0U},
        {"backedupFileSize", std::uint64_t{0}},
        {"pendingFileCount", 2U},
        {"pendingFileSize", std::uint64_t{6}},
        {"currentBackupFile", ""},
        {"currentRestoreFile", ""},
        {"currentRestoreJob", 0U},
        {"statusString", "Backup pending"},
        {"backupState", 26U},
        {"isBackupNeeded", true},
        {"lowerPriorityMode", false},
        {"paused", false},
        {"recoverMode", false},
        {"serviceState", 5U},
        {"isQuotaLimited", false},
        {"isOverQuota", false},
        {"quotaMB", 0U},
        {"backupControlFlags", 4U},
    };
    const Value state = pane.call<"daemonState">();
    EXPECT_EQ(state, expected) << state.description();
    for (const auto& [key, value] : expected.dictionary()) // equality is by value, the kind counts as well
        EXPECT_EQ(state[key].kind(), value.kind()) << key;
}

TEST_F(Serving, TellsEveryPaneOfFilesAndThoseThatWantItOfTheState) {
    folders.write("home/file", "1");
    const RunningDaemon daemon(folders);
    TestPane wanting(folders.socket());
    TestPane other(folders.socket());
    ASSERT_TRUE(wanting.waitFor([&] { return wanting.call<"serviceState">() == 5; }));
    wanting.call<"setStateHandler">();
    ASSERT_EQ(wanting.call<"pausedMinutes">(), 0U); // answered after the handler is set

    other.call<"setPausedMinutes:">(10U);
    EXPECT_TRUE(wanting.hears("state 13"));
    EXPECT_TRUE(wanting.state("paused").boolValue());
    other.call<"setPausedMinutes:">(0U);
    EXPECT_TRUE(wanting.hears("state 5"));

    folders.write("home/another", "22");
    for (TestPane* pane : {&wanting, &other}) {
        EXPECT_TRUE(pane->hears("file " + folders.home()));
        EXPECT_EQ(pane->state("pendingFileSize"), 3);
    }
    const auto hasHeardOfStates = [](TestPane& pane) {
        return std::any_of(pane.heard().begin(), pane.heard().end(),
                           [](const std::string& call) { return call.starts_with("state "); });
    };
    EXPECT_FALSE(hasHeardOfStates(other));

    wanting.call<"endStateHandler">();
    ASSERT_EQ(wanting.call<"pausedMinutes">(), 0U);
    wanting.heard().clear();
    other.call<"setRecoverMode:">(true);
    ASSERT_TRUE(other.call<"recoverMode">());
    folders.write("home/last", "333");
    EXPECT_TRUE(wanting.hears("file " + folders.home()));
    EXPECT_FALSE(hasHeardOfStates(wanting));
}

TEST_F(Serving, TellsOfTheEndOfAPauseByTheClock) {
    std::atomic<int> minutes = 1000;
    const RunningDaemon daemon(folders, [&](LocalDaemon::Options& options) {
        options.refreshInterval = 10ms;
        options.clock = [&] { return std::chrono::system_clock::time_point(std::chrono::minutes(minutes)); };
    });
    TestPane pane(folders.socket());
    pane.call<"setStateHandler">();
    pane.call<"setPausedMinutes:">(2U);
    EXPECT_TRUE(pane.hears("state 13"));
    ++minutes;
    EXPECT_EQ(pane.call<"pausedMinutes">(), 1U);
    pane.heard().clear();
    ++minutes;
    EXPECT_FALSE(pane.state("paused").boolValue());
    EXPECT_TRUE(pane.hears("state 8")); // although nobody has called
}

TEST_F(Serving, TellsOfAlertsThatStandWhenAPaneComesToWantThem) {
    folders.write("state", "a file where the folder of the settings should be");
    const RunningDaemon daemon(folders);
    TestPane early(folders.socket());
    early.call<"setAlertHandler">();
    early.call<"setValueForProfileKey:withString:">("a|b", "c");
    const auto hearsTheAlert = [](TestPane& pane) {
        return pane.waitFor([&] { return !pane.heard().empty(); }) &&
               pane.heard().front().starts_with(
                   "alert settings_not_saved|error|||Your settings could not be saved.|");
    };
    EXPECT_TRUE(hearsTheAlert(early));
    TestPane late(folders.socket());
    late.call<"setAlertHandler">();
    EXPECT_TRUE(hearsTheAlert(late));
}

TEST_F(Serving, ServesManyPanesAtOnce) {
    constexpr int paneCount = 8;
    constexpr unsigned rounds = 25;
    const RunningDaemon daemon(folders);
    std::vector<std::thread> threads;
    for (int number = 0; number < paneCount; ++number)
        threads.emplace_back([&, key = std::to_string(number)] {
            TestPane pane(folders.socket());
            for (unsigned round = 0; round < rounds; ++round) {
                pane.call<"setFileTypeToggle:toggle:">(key, round);
                ASSERT_EQ(pane.call<"getFileTypeToggle:">(key), round);
                ASSERT_TRUE(pane.state("serviceState").isNumber());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    TestPane last(folders.socket());
    for (int number = 0; number < paneCount; ++number)
        EXPECT_EQ(last.call<"getFileTypeToggle:">(std::to_string(number)), rounds - 1);
    // The threads of panes that have gone go with them: the listener's, and those of the one that is left,
    // stay.
    EXPECT_TRUE(eventually([] { return KelvaneSocket::liveThreads() == 3; }));
}

// Without taking what the other side has sent before.
bool isHungUp(int descriptor) {
    pollfd waiting{descriptor, 0, 0};
    return ::poll(&waiting, 1, 0) == 1;
}

// What never reads, and what fills its way meanwhile: answers that it asked for, or the daemon's own calls.
class Stalled : public Serving, public ::testing::WithParamInterface<const char*> {};

TEST_P(Stalled, PaneIsClosedAndHoldsUpNobody) {
    const RunningDaemon daemon(folders, [](LocalDaemon::Options& options) { options.sendTimeout = 1s; });
    TestPane pane(folders.socket());
    pane.call<"setStateHandler">();
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const tests::RawPeer stalled(descriptor);
    ASSERT_TRUE(stalled.connect(folders.socket()));
    stalled.send(tests::message(requestFrame, Array{0UL, "v", "setStateHandler", 0UL}));
    const bool isAsking = GetParam() == std::string_view("answers");
    for (int count = 0; isAsking && count < 200; ++count)
        stalled.send(tests::message(requestFrame, Array{8UL, "@", "daemonState", 0UL}));
    std::uint32_t state = 20;
    const auto callBack = [&] { pane.call<"setServiceState:">(state ^= 20U ^ 24U); };
    for (int count = 0; count < 100; ++count) {
        callBack();
        ASSERT_EQ(pane.call<"serviceState">(), state);
    }
    EXPECT_FALSE(isHungUp(descriptor));
    EXPECT_TRUE(eventually([&] {
        callBack();
        return isHungUp(descriptor);
    }));
    EXPECT_EQ(pane.call<"serviceState">(), state);
    EXPECT_TRUE(pane.hears("state 24"));
}

INSTANTIATE_TEST_SUITE_P(Filled, Stalled, ::testing::Values("answers", "callbacks"),
                         [](const auto& filled) { return std::string("By") + filled.param; });

TEST_F(Serving, IgnoresWhatMakesNoSense) {
    const RunningDaemon daemon(folders);
    TestPane pane(folders.socket());
    const std::string endless(std::size_t{1} << 20U, 'x');
    pane.invoke("setValueForProfileKey:withString:", {Value(Array{"key"}), "text"});
    pane.invoke("setValueForProfileKey:withString:", {"number", 5});
    pane.invoke("setValueForProfileKey:withString:", {"long", endless});
    pane.invoke("setFileTypeToggle:toggle:", {endless, 1});
    for (unsigned number = 0; number < 200; ++number)
        pane.call<"setFileTypeToggle:toggle:">("type " + std::to_string(number), 1U);
    EXPECT_EQ(pane.call<"stringValueForProfileKey:">("number"), "");
    EXPECT_EQ(pane.call<"stringValueForProfileKey:">("long"), "");
    EXPECT_EQ(pane.invoke("stringValueForProfileKey:", {7}), "");
    EXPECT_EQ(pane.invoke("getFileTypeToggle:", {endless}), 0);
    EXPECT_EQ(pane.call<"getFileTypeToggle:">("type 99"), 1U);
    EXPECT_EQ(pane.call<"getFileTypeToggle:">("type 199"), 0U);
    pane.call<"setPausedMinutes:">(0xFFFFFFFFU);
    EXPECT_EQ(pane.call<"pausedMinutes">(), 0xFFFFFFFFU);
}

TEST_F(Serving, EndsWhenAPaneAsksForIt) {
    folders.write("home/file", "1");
    RunningDaemon daemon(folders);
    TestPane other(folders.socket());
    TestPane pane(folders.socket());
    pane.call<"terminate">();
    EXPECT_TRUE(daemon.waitForEnd());
    EXPECT_FALSE(std::filesystem::exists(folders.socket()));
    EXPECT_TRUE(other.call<"daemonState">().isAbsent());
}

} // namespace
} // namespace kelvane
