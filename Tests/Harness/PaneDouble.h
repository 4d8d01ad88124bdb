#pragma once

#include "Platform/Desktop/Authorization/FixedAuthorization.h"
#include "Platform/Desktop/DesktopFileServices.h"
#include "PreferencePane/Services/PaneServices.h"
#include "Tests/Common/FakeFileServices.h"
#include "Tests/Harness/ManualLoop.h"

#include <QWidget>
#include <string>

namespace kelvane::tests {

// Records requests and opens nothing.
struct RecordingOpener : Opener {
    void openURL(const std::string& url, Failure failure) override { note(url, std::move(failure)); }
    void openFile(const std::string& path, Failure failure) override { note(path, std::move(failure)); }
    void note(const std::string& subject, Failure failure) {
        opened.push_back(subject);
        failed = std::move(failure);
    }

    std::vector<std::string> opened;
    Failure failed; // of the last request
};

// A pane controller for tests: everything that a controller reads is a field, and every order that it gives
// is a line in `calls`. It has no daemon until the test gives it a state.
struct PaneDouble : PaneServices {
    explicit PaneDouble(std::shared_ptr<const Bundle> texts = std::make_shared<Bundle>(Value(Dictionary())),
                        std::shared_ptr<MainLoop> loop = std::make_shared<ManualLoop>())
        : bundle_(std::move(texts)), mainLoop_(std::move(loop)) {}

    std::shared_ptr<BackupState> backupState() const override { return state; }
    const std::shared_ptr<const Bundle>& bundle() const override { return bundle_; }
    Value skinOptions() const override { return options; }
    const std::shared_ptr<NotificationCenter>& notifications() const override { return notifications_; }
    const std::shared_ptr<MainLoop>& mainLoop() const override { return mainLoop_; }
    const FileServices& fileServices() const override { return fileServices_; }
    const Icons& icons() const override { return icons_; }
    Opener& opener() const override { return opener_; }
    Authorization& authorization() const override { return *lock; }

    void didSelect() override { calls.emplace_back("didSelect"); }
    void terminateHost() override { calls.emplace_back("terminateHost"); }
    bool prefPaneAccessAuthorized() const override { return isAuthorized; }
    PaneFlags& flags() override { return flags_; }
    void enableBackupTabItems(bool enable) override { note("enableBackupTabItems", enable); }
    void enableRestoreTabItems(bool enable) override { note("enableRestoreTabItems", enable); }
    void setMessageTabString(const std::string& message) override { calls.push_back("message " + message); }
    void setBadConfigurationFlag() override { calls.emplace_back("setBadConfigurationFlag"); }
    void changeTabConfiguration(std::int32_t command, bool forceUpdate) override {
        note(forceUpdate ? "forceTabConfiguration" : "changeTabConfiguration", command);
    }
    void showRestoreProgress(bool show) override { note("showRestoreProgress", show); }
    bool isInRecoverMode() const override { return isRecovering; }
    void showOnlineHelp() override { calls.emplace_back("showOnlineHelp"); }

    QWidget* mainView() const override { return &mainView_; }
    QWidget* backupTab() const override { return backupTab_; }
    QWidget* restoreTab() const override { return restoreTab_; }
    QIcon bulletImageForColor(std::int32_t) const override { return {}; }
    bool existsDriveMountedAtSVD() const override { return false; }

    std::shared_ptr<BackupState> state;
    Value options;
    bool isAuthorized = true;
    bool isRecovering = false;
    std::vector<std::string> calls;
    FakeDisk disk;

    // The sender of the pane's notifications.
    void post(std::string_view notification) { notifications_->post(notification, this); }
    [[nodiscard]] const std::vector<std::string>& opened() const { return opener_.opened; }
    void failToOpen(const std::string& reason) const { opener_.failed(reason); }

private:
    void note(std::string_view order, int argument) {
        calls.push_back(std::string(order) + ' ' + std::to_string(argument));
    }

    const std::shared_ptr<const Bundle> bundle_;
    const std::shared_ptr<MainLoop> mainLoop_;
    const std::shared_ptr<NotificationCenter> notifications_ = std::make_shared<NotificationCenter>();
    const Icons icons_{bundle_};
    const FakeAccounts accounts_;
    const DesktopFileServices fileServices_{disk, accounts_, icons_};
    mutable RecordingOpener opener_;
    PaneFlags flags_;
    mutable QWidget mainView_;
    QWidget* const backupTab_ = new QWidget(&mainView_);
    QWidget* const restoreTab_ = new QWidget(&mainView_);

public:
    std::unique_ptr<Authorization> lock = std::make_unique<FixedAuthorization>(mainLoop_, true);
};

} // namespace kelvane::tests
