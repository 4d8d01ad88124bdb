#pragma once

#include "FakeDaemon/FakeDaemon.h"
#include "PreferencePane/Link/BackupState.h"
#include "Support/Logging.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/ManualLoop.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kelvane {

inline void PrintTo(const Value& value, std::ostream* stream) {
    *stream << value.description();
}

} // namespace kelvane

namespace kelvane::tests {

inline void PrintTo(const ReceivedCall& call, std::ostream* stream) {
    *stream << call.selector << ' ' << Value(call.arguments).description();
}

using namespace std::chrono_literals;

// A fake daemon that is not started yet, and the objects of a pane's side of the link, with private
// preferences.
class LinkTest : public testing::Test {
protected:
    // Returns the log lines with this prefix, in order.
    [[nodiscard]] std::vector<std::string> logged(std::string_view beginning) {
        const std::scoped_lock guard(logMutex_);
        std::vector<std::string> lines;
        std::copy_if(log_.begin(), log_.end(), std::back_inserter(lines),
                     [&](const std::string& line) { return line.starts_with(beginning); });
        return lines;
    }

    // Expects that no thread and no timer of the link is left.
    void expectNothingLeft() {
        EXPECT_EQ(loop->runningTimers(), 0);
        EXPECT_TRUE(loop->runUntil([] { return KelvaneSocket::liveThreads() == 0; }))
            << KelvaneSocket::liveThreads() << " threads";
        loop->runPosted(); // a posted task owns the socket that posted it, which owns the loop
    }

    const TemporaryFolder folder;
    const EnvironmentVariable preferences{"XDG_CONFIG_HOME", folder.path().c_str()};

private:
    std::mutex logMutex_;
    std::vector<std::string> log_;
    const LogSinkToken logSink_ = [this] {
        KelvaneLogStart(folder.path());
        return setLogSink([this](const LogEntry& entry) {
            const std::scoped_lock guard(logMutex_);
            log_.push_back(entry.text);
        });
    }();

protected:
    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    const std::shared_ptr<NotificationCenter> notifications = std::make_shared<NotificationCenter>();
    const std::shared_ptr<const Bundle> bundle =
        std::make_shared<Bundle>(Value(Dictionary{{"DaemonPath", folder / "daemon.sock"}}));
    FakeDaemon daemon{folder / "daemon.sock"};
};

// A BackupState whose notifications are recorded.
class BackupStateTest : public LinkTest {
protected:
    ~BackupStateTest() override {
        state.reset();
        daemon.stop();
        expectNothingLeft();
    }

    // Starts with a running daemon, and returns when both sides are connected.
    void connect() {
        ASSERT_TRUE(daemon.start());
        state->onBegin();
        ASSERT_TRUE(state->connected());
        ASSERT_TRUE(daemon.waitForPanes(1));
    }
    // Stops the daemon and waits until the receive thread has noticed.
    void loseDaemon() {
        daemon.stop();
        ASSERT_TRUE(loop->runUntil([this] { return !state->connected(); }));
    }

    std::unique_ptr<BackupState> state = std::make_unique<BackupState>(loop, notifications, bundle);
    std::vector<std::string> heard; // "connected", "lost", "state"
    std::vector<Value> states;

private:
    const NotificationCenter::Observer connectionObserver_ = notifications->observe(
        KelvaneBackupStateConnectionChangedNotification, state.get(), [this](const Notification&) {
            heard.emplace_back(state && state->connected() ? "connected" : "lost");
        });
    const NotificationCenter::Observer stateObserver_ = notifications->observe(
        KelvaneBackupStateChangedNotification, state.get(), [this](const Notification& notification) {
            heard.emplace_back("state");
            states.push_back(notification.userInfo);
        });
};

} // namespace kelvane::tests
