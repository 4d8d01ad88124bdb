#pragma once

#include "FakeDaemon/FakeDaemon.h"
#include "Platform/Desktop/Authorization/PolicyFile.h"
#include "Platform/FileContents.h"
#include "PreferencePane/PaneController.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/PaneDouble.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QTabWidget>
#include <gtest/gtest.h>

namespace kelvane::tests {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

// One list of the calls to all parts, in order.
struct Recording {
    explicit Recording(Calls& list) : calls(list) {}
    Calls& calls;
};

struct RecordingStatus : StatusTab, Recording {
    using Recording::Recording;
    QWidget* view() override { return new QWidget; }
    void awakeFromNib() override { calls.emplace_back("status awakes"); }
    void didSelectPrefPane() override { calls.emplace_back("status selected"); }
    void refreshStatusModePopup() override { calls.emplace_back("status refreshes"); }
    void writeStatusFieldsToDefaultsDB() override { calls.emplace_back("status writes"); }
    bool inRecoverMode() const override { return true; }
    void openURLUsingKey(const std::string& key) override { calls.push_back("opens " + key); }
};

struct RecordingBackup : BackupTab, Recording {
    using Recording::Recording;
    void awakeFromNib() override { calls.emplace_back("backup awakes"); }
    void enableTabItems(bool enable) override { calls.emplace_back(enable ? "backup on" : "backup off"); }
    void fileChanged(const std::string& path) override { calls.push_back("backup file " + path); }
    void folderChanged(const std::string& path) override { calls.push_back("backup folder " + path); }
};

struct RecordingRestore : RestoreTab, Recording {
    using Recording::Recording;
    QWidget* progressView() override { return progress = new QWidget; }
    void awakeFromNib() override { calls.emplace_back("restore awakes"); }
    void enableTabItems(bool enable) override { calls.emplace_back(enable ? "restore on" : "restore off"); }
    void fileChanged(const std::string& path) override { calls.push_back("restore file " + path); }
    void restoredFileName(const std::string& name) override { calls.push_back("name " + name); }
    void restoredFileSize(std::uint64_t size) override { calls.push_back("size " + std::to_string(size)); }
    void restoredPendingCount(std::uint32_t count) override {
        calls.push_back("pending " + std::to_string(count));
    }

    QWidget* progress = nullptr;
};

struct RecordingHelp : HelpTab, Recording {
    using Recording::Recording;
    QWidget* view() override { return new QWidget; }
    void awakeFromNib() override { calls.emplace_back("help awakes"); }
};

struct RecordingInfo : InfoWindows, Recording {
    using Recording::Recording;
    void closeInfoWindows() override { calls.emplace_back("info closes"); }
};

// To an authority that refuses everything the right is new.
struct TestAuthorization : FixedAuthorization {
    TestAuthorization(std::shared_ptr<MainLoop> loop, bool isGranted)
        : FixedAuthorization(std::move(loop), isGranted), isKnown(isGranted) {}
    void lookUpRight(std::function<void(RightStatus)> completion) override {
        isKnown ? FixedAuthorization::lookUpRight(completion) : completion(RightStatus::Absent);
    }
    const bool isKnown;
};

class TestHost : public PaneHost {
public:
    explicit TestHost(bool isGranted) : isGranted_(isGranted) {}
    std::shared_ptr<MainLoop> mainLoop() override { return loop; }
    std::unique_ptr<Authorization> makeAuthorization(const RightDefinition& right) override {
        const Data packaged = readFile(KELVANE_POLICY, std::size_t{1} << 16U).bytes;
        EXPECT_EQ(policyText(right), std::string(packaged.begin(), packaged.end()));
        return std::make_unique<TestAuthorization>(loop, isGranted_);
    }
    Opener& opener() override { return opener_; }
    void terminate() override {}
    void widenWindow(int) override { ADD_FAILURE() << "this system's windows are wide"; }

    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();

private:
    RecordingOpener opener_;
    const bool isGranted_;
};

class PaneControllerTest : public testing::Test {
protected:
    void begin(bool isGranted = true) {
        host = std::make_unique<TestHost>(isGranted);
        PanePlatform platform;
        bundle = std::make_shared<Bundle>(folder.path(), Dictionary{{"DaemonPath", folder / "daemon.sock"}});
        platform.bundle = bundle;
        platform.isMountPoint = [this](std::string_view path) { return path == mountPoint; };
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
        parts.help = std::make_unique<RecordingHelp>(calls);
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
    [[nodiscard]] std::string shownTab() const {
        const auto& tabs = *pane->mainView()->findChild<QTabWidget*>();
        return tabs.tabText(tabs.currentIndex()).toStdString();
    }
    // A picture of one colour in the pane's bundle.
    void writePicture(const std::string& name, const QColor& color) const {
        QImage picture(16, 16, QImage::Format_RGB32);
        picture.fill(color);
        std::filesystem::create_directories(folder / "Resources");
        ASSERT_TRUE(picture.save(QString::fromStdString(folder / ("Resources/" + name))));
    }
    static QColor colorOf(const QIcon& icon) { return icon.pixmap(16, 16).toImage().pixelColor(8, 8); }

    const TemporaryFolder folder;
    const EnvironmentVariable preferences{"XDG_CONFIG_HOME", folder.path().c_str()};
    std::shared_ptr<const Bundle> bundle; // the folder's contents when the pane starts
    std::string mountPoint;
    const std::shared_ptr<NotificationCenter> notifications = std::make_shared<NotificationCenter>();
    FakeDaemon daemon{folder / "daemon.sock"};
    std::unique_ptr<TestHost> host;
    std::unique_ptr<ComKelvanePreferencePanePref> pane;
    RecordingRestore* restore = nullptr;
    Calls calls;
};

} // namespace kelvane::tests
