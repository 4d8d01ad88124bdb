#include "PreferencePane/PaneController.h"
#include "FakeDaemon/FakeDaemon.h"
#include "Platform/Desktop/FixedAuthorization.h"
#include "Platform/Desktop/PolicyFile.h"
#include "Platform/FileContents.h"
#include "PreferencePane/RestoreAlert.h"
#include "Tests/Common/FakeFileServices.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/ManualLoop.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QLabel>
#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

// One list of what all parts are told, in order.
struct RecordingStatus : StatusTab {
    explicit RecordingStatus(Calls& calls) : calls(calls) {}
    QWidget* view() override { return new QWidget; }
    void awakeFromNib() override { calls.emplace_back("status awakes"); }
    void didSelectPrefPane() override { calls.emplace_back("status selected"); }
    void refreshStatusModePopup() override { calls.emplace_back("status refreshes"); }
    void writeStatusFieldsToDefaultsDB() override { calls.emplace_back("status writes"); }
    bool inRecoverMode() const override { return true; }
    void openURLUsingKey(const std::string& key) override { calls.push_back("opens " + key); }

    Calls& calls;
};

struct RecordingBackup : BackupTab {
    explicit RecordingBackup(Calls& calls) : calls(calls) {}
    void awakeFromNib() override { calls.emplace_back("backup awakes"); }
    void enableTabItems(bool enable) override { calls.emplace_back(enable ? "backup on" : "backup off"); }
    void fileChanged(const std::string& path) override { calls.push_back("backup file " + path); }
    void folderChanged(const std::string& path) override { calls.push_back("backup folder " + path); }

    Calls& calls;
};

struct RecordingRestore : RestoreTab {
    explicit RecordingRestore(Calls& calls) : calls(calls) {}
    QWidget* progressView() override { return progress = new QWidget; }
    void awakeFromNib() override { calls.emplace_back("restore awakes"); }
    void enableTabItems(bool enable) override { calls.emplace_back(enable ? "restore on" : "restore off"); }
    void fileChanged(const std::string& path) override { calls.push_back("restore file " + path); }
    void restoredFileName(const std::string& name) override { calls.push_back("name " + name); }
    void restoredFileSize(std::uint64_t size) override { calls.push_back("size " + std::to_string(size)); }
    void restoredPendingCount(std::uint32_t count) override {
        calls.push_back("pending " + std::to_string(count));
    }

    Calls& calls;
    QWidget* progress = nullptr;
};

struct RecordingInfo : InfoWindows {
    explicit RecordingInfo(Calls& calls) : calls(calls) {}
    void closeInfoWindows() override { calls.emplace_back("info closes"); }
    Calls& calls;
};

class NoOpener : public Opener {
    void openURL(const std::string&, Failure) override {}
    void openFile(const std::string&, Failure) override {}
};

class TestHost : public PaneHost {
public:
    explicit TestHost(bool isGranted) : isGranted_(isGranted) {}
    std::shared_ptr<MainLoop> mainLoop() override { return loop; }
    std::unique_ptr<Authorization> makeAuthorization(const RightDefinition& right) override {
        const Data packaged = readFile(KELVANE_POLICY, std::size_t{1} << 16U).bytes;
        EXPECT_EQ(policyText(right), std::string(packaged.begin(), packaged.end()));
        return std::make_unique<FixedAuthorization>(loop, isGranted_);
    }
    Opener& opener() override { return opener_; }
    void terminate() override {}
    void widenWindow(int) override { ADD_FAILURE() << "this system's windows are wide"; }

    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();

private:
    NoOpener opener_;
    const bool isGranted_;
};

class PaneControllerTest : public testing::Test {
protected:
    void begin(bool isGranted = true) {
        host = std::make_unique<TestHost>(isGranted);
        PanePlatform platform;
        platform.bundle = bundle;
        platform.notifications = notifications;
        auto disk = std::make_unique<FakeDisk>();
        platform.accounts = std::make_unique<FakeAccounts>();
        platform.icons = std::make_unique<Icons>(bundle);
        platform.fileServices = std::make_unique<PlainFileServices>(*disk, *platform.accounts, "C");
        platform.fileSystem = std::move(disk);
        pane = std::make_unique<ComKelvanePreferencePanePref>(*host, std::move(platform));
        PaneParts parts;
        parts.info = std::make_unique<RecordingInfo>(calls);
        parts.status = std::make_unique<RecordingStatus>(calls);
        parts.backup = std::make_unique<RecordingBackup>(calls);
        auto made = std::make_unique<RecordingRestore>(calls);
        restore = made.get();
        parts.restore = std::move(made);
        pane->setParts(std::move(parts));
        pane->awakeFromNib();
    }
    void select() {
        ASSERT_TRUE(daemon.start());
        pane->didSelect();
        ASSERT_TRUE(daemon.waitForPanes(1));
    }
    void TearDown() override {
        pane.reset();
        daemon.stop();
        if (!host)
            return;
        EXPECT_TRUE(host->loop->runUntil([] { return KelvaneSocket::liveThreads() == 0; }));
        EXPECT_EQ(host->loop->runningTimers(), 0);
    }
    Calls taken() { return std::exchange(calls, {}); }

    const TemporaryFolder folder;
    const EnvironmentVariable preferences{"XDG_CONFIG_HOME", folder.path().c_str()};
    const std::shared_ptr<const Bundle> bundle =
        std::make_shared<Bundle>(Value(Dictionary{{"DaemonPath", folder / "daemon.sock"}}));
    const std::shared_ptr<NotificationCenter> notifications = std::make_shared<NotificationCenter>();
    FakeDaemon daemon{folder / "daemon.sock"};
    std::unique_ptr<TestHost> host;
    std::unique_ptr<ComKelvanePreferencePanePref> pane;
    RecordingRestore* restore = nullptr;
    Calls calls;
};

TEST_F(PaneControllerTest, WakesSelectsAndUnselectsItsPartsInOrder) {
    begin();
    EXPECT_EQ(taken(),
              (Calls{"restore on", "backup on", "status awakes", "backup awakes", "restore awakes"}));
    EXPECT_EQ(pane->tabNames(), (Calls{"Status", "Backup", "Restore"}));
    EXPECT_FALSE(pane->backupState());
    for (int times = 0; times < 2; ++times) {
        select();
        EXPECT_TRUE(pane->connected());
        EXPECT_EQ(taken(), Calls{"status selected"});
        const auto state = pane->backupState();
        pane->didSelect();
        EXPECT_EQ(pane->backupState(), state) << "what is there goes on";
        taken();
        pane->willUnselect();
        EXPECT_EQ(taken(), (Calls{"restore on", "backup on", "info closes", "status writes"}));
        EXPECT_FALSE(pane->backupState());
        daemon.stop();
    }
}

TEST_F(PaneControllerTest, AppliesAConfigurationOnceUnlessForcedAndNeverWhenFrozen) {
    begin();
    taken();
    pane->changeTabConfiguration(1, false);
    EXPECT_EQ(taken(), Calls{});
    pane->changeTabConfiguration(0, true);
    EXPECT_EQ(taken(), (Calls{"restore on", "backup on"}));
    pane->changeTabConfiguration(4, false);
    EXPECT_EQ(taken(), (Calls{"restore off", "backup off"}));
    EXPECT_EQ(pane->tabNames(), Calls{"Message"});
    pane->changeTabConfiguration(7, false);
    pane->changeTabConfiguration(0, true);
    EXPECT_EQ(pane->tabNames(), Calls{"Message"}) << "a command of no meaning is only stored";
    pane->changeTabConfiguration(1, false);
    EXPECT_EQ(pane->tabNames(), (Calls{"Status", "Backup", "Restore"}));

    pane->changeTabConfiguration(4, false);
    pane->setBadConfigurationFlag();
    pane->changeTabConfiguration(1, true);
    EXPECT_EQ(pane->tabNames(), Calls{"Message"}) << "until the pane is hidden";
    pane->willUnselect();
    EXPECT_EQ(pane->tabNames(), (Calls{"Status", "Backup", "Restore"}));
    pane->changeTabConfiguration(4, false);
    EXPECT_EQ(pane->tabNames(), Calls{"Message"}) << "and is not frozen any more";
}

TEST_F(PaneControllerTest, TellsOfTheLinkThenOfTheState) {
    begin();
    Calls notices;
    std::vector<NotificationCenter::Observer> observers;
    for (const auto name :
         {KelvanePrefPaneReadyChangedNotification, KelvanePrefPaneDaemonStateChangedNotification})
        observers.push_back(
            notifications->observe(std::string(name), pane.get(), [&](const Notification& notice) {
                notices.push_back(std::string(notice.name) + (pane->connected() ? " +" : " -"));
            }));
    const std::string ready(KelvanePrefPaneReadyChangedNotification);
    const std::string state(KelvanePrefPaneDaemonStateChangedNotification);
    select();
    EXPECT_EQ(notices, (Calls{ready + " +", state + " +", state + " +"})) << "the link, and the first poll";
    notices.clear();
    daemon.setState("serviceState", 8U);
    host->loop->advance(2s);
    EXPECT_EQ(notices, Calls{state + " +"});
    notices.clear();
    taken();
    daemon.stop();
    ASSERT_TRUE(host->loop->runUntil([&] { return !pane->connected(); }));
    EXPECT_EQ(notices.front(), ready + " -");
    EXPECT_EQ(taken(), (Calls{"restore on", "backup on"}));
}

// Each link is a new one to the daemon: who was told of progress before is not told any more.
TEST_F(PaneControllerTest, ShowsTheProgressOfARestoreOnEachLinkWhileOneRuns) {
    begin();
    const auto isShown = [this] { return restore->progress->isVisibleTo(pane->mainView()); };
    for (const auto& [job, status, isRunning, isHiddenAfter] :
         std::vector<std::tuple<unsigned, unsigned, bool, bool>>{{0U, 51U, false, false},
                                                                 {7U, 51U, true, false},
                                                                 {7U, 52U, true, false},
                                                                 {7U, 50U, false, false},
                                                                 {7U, 51U, true, true},
                                                                 {0U, 51U, false, false}}) {
        SCOPED_TRACE(std::to_string(job) + ' ' + std::to_string(status));
        daemon.answer("getCurrentRestoreJob", job);
        daemon.answer("getRestoreJobStatus:", status);
        daemon.forgetCalls();
        if (pane->backupState()) {
            ASSERT_TRUE(daemon.start());
            host->loop->advance(1s);
        } else {
            select();
        }
        ASSERT_TRUE(pane->connected());
        EXPECT_EQ(isShown(), isRunning);
        pane->backupState()->updateDaemonState(); // once that is answered it has taken what came before
        for (const char* const handler : {"setStateHandler", "setAlertHandler"})
            EXPECT_EQ(daemon.callCount(handler), isRunning ? 1U : 0U) << handler;
        EXPECT_EQ(daemon.callCount("endStateHandler"), 0U);
        if (isHiddenAfter)
            pane->willUnselect();
        EXPECT_EQ(isShown(), isRunning && !isHiddenAfter);
        daemon.stop();
        ASSERT_TRUE(host->loop->runUntil([&] { return !pane->connected(); }));
        EXPECT_EQ(isShown(), isRunning && !isHiddenAfter) << "the restore may go on without the link";
    }
}

TEST_F(PaneControllerTest, PassesTheDaemonsCallsOn) {
    daemon.answer("stringForState:", "a.txt");
    daemon.answer("longlongForState:", std::uint64_t{5} << 32U);
    daemon.answer("longForState:", 3);
    begin();
    select();
    host->loop->runPosted();
    taken();
    const std::string root = "/Volumes/" + pane->fileServices().fileSystem().volumes()->bootVolume().name;
    daemon.callPanes("filesChanged:", {Value(Array{root, "/Volumes/Other/b"})});
    daemon.callPanes("folderChanged:", {root});
    daemon.callPanes("fileChanged:", {"/a"});
    daemon.callPanes("foldersChanged:", {Value(Array{"/b"})});
    daemon.callPanes("statesChanged:", {Value(Array{15U, 16U, 35U, 99U, 48U, 48U})});
    ASSERT_TRUE(host->loop->runUntil([&] { return daemon.callCount("setAlertHandler") == 1; }));
    EXPECT_EQ(taken(),
              (Calls{"backup file /", "restore file /", "backup file /Volumes/Other/b",
                     "restore file /Volumes/Other/b", "backup folder /", "backup file /a", "restore file /a",
                     "backup folder /b", "name a.txt", "size 21474836480", "pending 3"}));
    QWidget* const view = pane->mainView();
    EXPECT_TRUE(restore->progress->isVisibleTo(view));
    EXPECT_EQ(daemon.callCount("setStateHandler"), 1U);
    daemon.callPanes("setAlertStrings:",
                     {Value(Array{"restore_finished|||", "restore_finished||||failed", "x||||"})});
    daemon.callPanes("stateChanged:", {15U});
    ASSERT_TRUE(host->loop->runUntil([&] { return !calls.empty(); })) << "by then the alerts have been read";
    EXPECT_TRUE(restore->progress->isVisibleTo(view));
    daemon.callPanes("setAlertString:", {"restore_finished||||"});
    ASSERT_TRUE(host->loop->runUntil([&] { return daemon.callCount("endAlertHandler") == 1; }));
    EXPECT_FALSE(restore->progress->isVisibleTo(view));
}

TEST_F(PaneControllerTest, IsLockedUntilTheAuthorityAnswers) {
    for (const bool isGranted : {true, false}) {
        begin(isGranted);
        EXPECT_FALSE(pane->prefPaneAccessAuthorized());
        pane->mainViewDidLoad();
        EXPECT_FALSE(pane->prefPaneAccessAuthorized());
        taken();
        host->loop->runPosted();
        EXPECT_EQ(pane->prefPaneAccessAuthorized(), isGranted);
        EXPECT_EQ(taken(), (Calls{"restore on", "backup on", "status refreshes"}));
        pane.reset();
    }
}

TEST(RestoreAlert, EndsTheProgressOnlyWhenItIsWholeAndSaysNothingMore) {
    const std::pair<const char*, bool> cases[] = {
        {"restore_finished||||", true},     {"restore_finished|a|b|c||more", true},
        {"restore_finished||||why", false}, {"restore_finished|||", false},
        {"restore_finished", false},        {"", false},
        {"restore_finished2||||", false},   {"||||", false},
    };
    for (const auto& [alert, ends] : cases)
        EXPECT_EQ(endsRestoreProgress(alert), ends) << alert;
}

} // namespace
} // namespace kelvane::tests
