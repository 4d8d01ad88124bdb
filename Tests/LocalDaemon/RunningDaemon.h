#pragma once

#include "Common/ClientTarget.h"
#include "Common/KelvProxy.h"
#include "LocalDaemon/LocalDaemon.h"
#include "Platform/PollLoop.h"
#include "Tests/Harness/ManualLoop.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <atomic>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace kelvane::tests {

// A daemon's folders: "home" to watch over, and what it needs beside.
class DaemonFolders : public TemporaryFolder {
public:
    DaemonFolders() { std::filesystem::create_directory(home()); }

    [[nodiscard]] std::string home() const { return *this / "home"; }
    [[nodiscard]] std::string socket() const { return *this / "run/daemon.sock"; }
    [[nodiscard]] std::string settings() const { return *this / "state/settings.plist"; }
};

// The daemon inside the test, on a thread that takes the place of its main thread.
class RunningDaemon {
public:
    explicit RunningDaemon(const DaemonFolders& folders,
                           const std::function<void(LocalDaemon::Options&)>& adjust = {}) {
        LocalDaemon::Options options;
        options.home = folders.home();
        options.socketPath = folders.socket();
        options.settingsPath = folders.settings();
        options.configurationPath = folders / "configuration.plist";
        if (adjust)
            adjust(options);
        std::promise<std::string> started;
        thread_ = std::thread([this, options, &started] { serve(options, started); });
        EXPECT_EQ(started.get_future().get(), "");
    }
    ~RunningDaemon() { stop(); }

    void stop() {
        loop_->quit();
        if (thread_.joinable())
            thread_.join();
    }
    // Whether it was asked to end, and not by the test.
    [[nodiscard]] bool waitForEnd() {
        thread_.join();
        return terminated_;
    }

private:
    void serve(const LocalDaemon::Options& options, std::promise<std::string>& started) {
        LocalDaemon daemon(options, loop_, [this] {
            terminated_ = true;
            loop_->quit();
        });
        started.set_value(daemon.start());
        loop_->run();
    }

    const std::shared_ptr<PollLoop> loop_ = std::make_shared<PollLoop>();
    std::atomic<bool> terminated_{false};
    std::thread thread_;
};

// A pane: calls the daemon, and writes down what that calls.
class TestPane {
public:
    explicit TestPane(const std::string& socketPath) {
        const auto socket = KelvaneSocket::create(loop_);
        EXPECT_TRUE(socket->connectToPath(socketPath));
        proxy_->setProtocol(KelvaneDaemonProtocol);
        proxy_->setCallDelegateOnMainThread(true);
        proxy_->setDelegate(target_);
        proxy_->setSocket(socket);
    }
    ~TestPane() {
        proxy_->setSocket(nullptr);
        loop_->close();
    }

    template <Selector selector, class... Arguments>
    auto call(const Arguments&... arguments) {
        return proxy_->call<selector>(arguments...);
    }
    Value invoke(std::string_view selector, const std::vector<Value>& arguments = {}) {
        return proxy_->invoke(selector, arguments);
    }
    Value state(std::string_view key) { return call<"daemonState">()[key]; }

    // Runs the daemon's calls until the condition holds; false when it never does.
    template <class Condition>
    [[nodiscard]] bool waitFor(Condition condition) {
        return loop_->runUntil(condition);
    }
    [[nodiscard]] bool hears(const std::string& call) {
        return waitFor([&] { return std::count(heard().begin(), heard().end(), call) > 0; });
    }
    [[nodiscard]] std::vector<std::string>& heard() { return target_->heard; }

private:
    // Takes nothing any more once it is closed: a call that comes late would keep its proxy, which keeps the
    // loop.
    class Loop : public ManualLoop {
    public:
        void post(Task task) override {
            const std::scoped_lock guard(mutex_);
            if (!closed_)
                ManualLoop::post(std::move(task));
        }
        void close() {
            {
                const std::scoped_lock guard(mutex_);
                closed_ = true;
            }
            runPosted();
        }

    private:
        std::mutex mutex_;
        bool closed_ = false;
    };

    struct Target : ClientTarget {
        void fileChanged(const Value& path) override { heard.push_back("file " + path.stringValue()); }
        void filesChanged(const Value& paths) override { each(paths, &Target::fileChanged); }
        void folderChanged(const Value& path) override { heard.push_back("folder " + path.stringValue()); }
        void foldersChanged(const Value& paths) override { each(paths, &Target::folderChanged); }
        void stateChanged(std::uint32_t state) override { heard.push_back("state " + std::to_string(state)); }
        void statesChanged(const Value& states) override {
            for (const Value& state : states.array())
                stateChanged(state.uint32Value());
        }
        void setAlertString(const Value& alert) override { heard.push_back("alert " + alert.stringValue()); }
        void setAlertStrings(const Value& alerts) override { each(alerts, &Target::setAlertString); }

        void each(const Value& items, void (Target::*one)(const Value&)) {
            for (const Value& item : items.array())
                (this->*one)(item);
        }
        std::vector<std::string> heard;
    };

    const std::shared_ptr<Loop> loop_ = std::make_shared<Loop>();
    const std::shared_ptr<Target> target_ = std::make_shared<Target>();
    const std::shared_ptr<KelvaneProxy> proxy_ = KelvaneProxy::create(loop_);
};

} // namespace kelvane::tests
