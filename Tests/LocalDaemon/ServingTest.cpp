#include "Common/RestoreStatus.h"
#include "Support/Logging.h"
#include "Tests/Harness/LinkPair.h"
#include "Tests/LocalDaemon/RunningDaemon.h"

#include <atomic>
#include <poll.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using tests::eventually;
using tests::RunningDaemon;
using tests::TestPane;

// Expects that no thread of the link is left.
class Serving : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_TRUE(eventually([] { return KelvaneSocket::liveThreads() == 0; }, 2s));
    }
    const tests::DaemonFolders folders;
    const LogSinkToken quiet = setLogSink([](const LogEntry&) {});
};

// Single paths are tested separately.
TEST_F(Serving, AppliesWhatItIsToldAndIgnoresWhatMakesNoSense) {
    folders.write("configuration.plist", R"(<?xml version="1.0"?><plist version="1.0"><dict>
        <key>serverURL</key><string>backup.example.org</string><key>userEmail</key><string>joe@example.org</string>
        <key>computerNumber</key><integer>77</integer><key>quotaMB</key><integer>2048</integer></dict></plist>)");
    folders.write("repository/config", "of a backup whose key is lost, and the index");
    const RunningDaemon daemon(folders);
    EXPECT_FALSE(std::filesystem::exists(folders / "state/password")); // a new one would open nothing
    TestPane pane(folders.socket());
    const std::string endless(std::size_t{1} << 20U, 'x');
    const struct {
        std::string_view call;
        std::vector<Value> arguments;
        std::string_view question;
        std::vector<Value> about;
        Value answer;
    } cases[] = {
        {"setAutomaticMode:", {false}, "automaticMode", {}, false},
        {"setRecoverMode:", {true}, "recoverMode", {}, true},
        {"setPausedMinutes:", {0xFFFFFFFFU}, "pausedMinutes", {}, 0xFFFFFFFFU},
        {"setServiceState:", {24U}, "serviceState", {}, 24},
        {"setFileTypeToggle:toggle:", {"movies", 3U}, "getFileTypeToggle:", {"movies"}, 3},
        {"setFileTypeToggle:toggle:", {endless, 1}, "getFileTypeToggle:", {endless}, 0},
        {"setFileTypeToggle:toggle:", {7, 1}, "getFileTypeToggle:", {7}, 0},
        {"setValueForProfileKey:withString:", {"a", "b"}, "stringValueForProfileKey:", {"a"}, "b"},
        {"setValueForProfileKey:withString:", {"a", 5}, "stringValueForProfileKey:", {"a"}, "b"},
        {"setValueForProfileKey:withString:", {"a", endless}, "stringValueForProfileKey:", {"a"}, "b"},
        {"setValueForProfileKey:withString:", {7, "c"}, "stringValueForProfileKey:", {7}, ""},
        {"setPriorityBackup:", {"/a"}, "serverURL", {}, "backup.example.org"},
        {"setPriorityBackup:", {"a"}, "verify", {}, "The backup is paused, disabled or not configured."},
        {"restoreFile:toPath:version:priority:",
         {"a", "/b", 0U, 50U},
         "stringValueForProfileKey:",
         {restorestatus::failuresKey(0)},
         "a cannot be restored to /b: both must be valid absolute paths.\n"},
        {"restoreWithChoices:",
         {"x"},
         "dismissAlert:",
         {"restore_refused"},
         "The alert \"restore_refused\" does not offer \"dismiss:\"."},
        {"showRestoreWizard", {}, "userEmail", {}, "joe@example.org"},
        {"cancelAllRestoreJobs", {}, "computerNumber", {}, 77},
        {"endStateHandler", {}, "mappedUserAsString:", {0}, "root"},
        {"endAlertHandler", {}, "mappedUserAsString:", {"joe"}, "joe"},
    };
    for (const auto& [call, arguments, question, about, answer] : cases) {
        pane.invoke(call, arguments);
        EXPECT_EQ(pane.invoke(question, about), answer) << call << ' ' << question;
    }
    EXPECT_FALSE(pane.call<"restoreWithChoices:">("x"));
    pane.call<"setBackupControl:">(7U);
    EXPECT_EQ(pane.state("backupControlFlags"), 7);
    for (unsigned number = 0; number < 120; ++number)
        pane.call<"setFileTypeToggle:toggle:">("type " + std::to_string(number), 1U);
    EXPECT_EQ(pane.call<"getFileTypeToggle:">("type 90"), 1U);
    EXPECT_EQ(pane.call<"getFileTypeToggle:">("type 119"), 0U);
}

TEST_F(Serving, TellsEveryPaneOfFoldersAndThoseThatWantItOfTheState) {
    std::atomic<int> minutes = 1000;
    const RunningDaemon daemon(folders, [&](LocalDaemon::Options& options) {
        options.refreshInterval = 10ms;
        options.clock = [&] { return std::chrono::system_clock::time_point(std::chrono::minutes(minutes)); };
    });
    TestPane wanting(folders.socket());
    TestPane other(folders.socket());
    wanting.call<"setStateHandler">();
    ASSERT_EQ(wanting.call<"pausedMinutes">(), 0U); // answered after the handler is set
    other.call<"setPausedMinutes:">(2U);
    EXPECT_TRUE(wanting.hears("state 13"));
    ++minutes;
    EXPECT_EQ(wanting.call<"pausedMinutes">(), 1U);
    wanting.heard().clear();
    ++minutes;
    EXPECT_TRUE(wanting.hears("state 8")); // although nobody has called the daemon

    wanting.call<"endStateHandler">();
    ASSERT_EQ(wanting.call<"pausedMinutes">(), 0U);
    wanting.heard().clear();
    other.call<"setEnabled:">(false);
    folders.write("home/file", "22");
    for (TestPane* pane : {&wanting, &other}) {
        EXPECT_TRUE(pane->hears("folder /Volumes/"));
        EXPECT_TRUE(pane->heard().back().ends_with(folders.home()));
        EXPECT_EQ(pane->state("pendingFileSize"), 2);
        EXPECT_EQ(pane->call<"liveStateString">(), "1 files with 2 bytes on this computer");
        EXPECT_EQ(pane->call<"backedupStateString">(), "0 files with 0 bytes in the backup");
        EXPECT_FALSE(pane->hasHeard("state "));
    }
}

TEST_F(Serving, TellsOfAlertsThatStandWhenAPaneComesToWantThem) {
    folders.write("state", "a file where the folder of the settings should be");
    const RunningDaemon daemon(
        folders, [](LocalDaemon::Options& options) { options.defaults.repository.location.clear(); });
    for (const char* value : {"first", "second"}) { // raised once, and sent to the later pane as well
        TestPane pane(folders.socket());
        pane.call<"setAlertHandler">();
        pane.call<"setValueForProfileKey:withString:">("a|b", value);
        EXPECT_TRUE(pane.hears("setAlert settings_not_saved|error|||Your settings could not be saved.|"));
        EXPECT_EQ(pane.state("waitingFor"), "No valid destination is configured.");
        EXPECT_EQ(pane.call<"restoreFile:toPath:version:priority:">("/a", "/b", 0U, 50U), 0U);
        EXPECT_EQ(pane.call<"stringValueForProfileKey:">(restorestatus::failuresKey(0)),
                  "/a cannot be restored: no valid repository is configured.\n");
    }
}

TEST_F(Serving, ServesManyPanesAtOnce) {
    const RunningDaemon daemon(folders);
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back([&, path = folders.write("home/" + std::to_string(number), "1")] {
            TestPane pane(folders.socket());
            for (unsigned round = 0; round < 10; ++round) {
                ASSERT_EQ(pane.call<"excludeFileFromBackup:">(path), 0U);
                ASSERT_EQ(pane.call<"backupColorsForFiles:">(Value(Array{path})), Array{1});
                ASSERT_EQ(pane.call<"unexcludeFileFromBackup:">(path), 0U);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    TestPane last(folders.socket());
    EXPECT_EQ(last.call<"excludedFiles:">("/"), Array());
    EXPECT_TRUE(last.waitFor([&] { return last.state("pendingFileCount") == 8; }));
    // The threads of disconnected panes end; the listener's, and those of the remaining pane, stay.
    EXPECT_TRUE(eventually([] { return KelvaneSocket::liveThreads() == 3; }));
}

// Does not read what the other side has sent before.
bool isHungUp(int descriptor) {
    pollfd waiting{descriptor, 0, 0};
    return ::poll(&waiting, 1, 0) == 1;
}

// A pane that never reads, and what fills its connection: requested answers, or the daemon's own calls.
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

} // namespace
} // namespace kelvane
