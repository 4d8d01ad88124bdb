#pragma once

#include "Common/KelvProxy.h"
#include "LocalDaemon/LocalDaemon.h"
#include "Platform/PollLoop.h"
#include "Tests/Harness/ManualLoop.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace kelvane::tests {

// A daemon's folders: "home" to back up, and its own files beside it.
class DaemonFolders : public TemporaryFolder {
public:
    DaemonFolders() { std::filesystem::create_directory(home()); }

    [[nodiscard]] std::string home() const { return *this / "home"; }
    // Creates a shell script that replaces restic.
    std::string program(const std::string& text) const {
        return writeProgram("restic", "#!/bin/bash\n" + text);
    }
    [[nodiscard]] std::string socket() const { return *this / "run/daemon.sock"; }
};

// The daemon in the test's process, on a thread that serves as its main thread.
class RunningDaemon {
public:
    explicit RunningDaemon(const DaemonFolders& folders,
                           const std::function<void(LocalDaemon::Options&)>& adjust = {}) {
        LocalDaemon::Options options;
        options.defaults.home = folders.home();
        options.defaults.repository.location = folders / "repository";
        options.defaults.repository.passwordFile = folders / "state/password";
        options.defaults.repository.cacheFolder = folders / "cache";
        options.indexPath = folders / "state/index";
        options.restoreJobsPath = folders / "state/restores";
        options.processesPath = folders / "state/processes";
        options.backup.schedule.quiet = std::chrono::hours(24); // pending files stay pending
        options.backup.schedule.longestWait = options.backup.schedule.quiet;
        options.socketPath = folders.socket();
        options.settingsPath = folders / "state/settings.plist";
        options.configurationPath = folders / "configuration.plist";
        if (adjust)
            adjust(options);
        std::promise<std::string> started;
        thread_ = std::thread([this, options, &started] { serve(options, started); });
        EXPECT_EQ(started.get_future().get(), "");
    }
    ~RunningDaemon() {
        loop_->quit();
        thread_.join();
    }

private:
    void serve(const LocalDaemon::Options& options, std::promise<std::string>& started) {
        LocalDaemon daemon(options, loop_, [] {});
        started.set_value(daemon.start());
        loop_->run();
    }

    const std::shared_ptr<PollLoop> loop_ = std::make_shared<PollLoop>();
    std::thread thread_;
};

// A pane that calls the daemon and records the daemon's calls.
class TestPane {
public:
    explicit TestPane(const std::string& socketPath) {
        const auto socket = KelvaneSocket::create(loop_);
        EXPECT_TRUE(socket->connectToPath(socketPath));
        proxy_->setProtocol(KelvaneExtendedDaemonProtocol);
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

    // Runs the daemon's calls until the condition holds; returns false on a timeout.
    template <class Condition>
    [[nodiscard]] bool waitFor(Condition condition, std::chrono::seconds limit = std::chrono::seconds(10)) {
        return loop_->runUntil(condition, limit);
    }
    [[nodiscard]] bool hasHeard(const std::string& start) {
        return std::ranges::any_of(heard(), [&](const auto& call) { return call.starts_with(start); });
    }
    [[nodiscard]] bool hears(const std::string& start) {
        return waitFor([&] { return hasHeard(start); });
    }
    [[nodiscard]] std::vector<std::string>& heard() { return target_->heard; }

private:
    // Ignores calls once it is closed: a late call would own its proxy, which owns the loop.
    struct Loop : ManualLoop {
        void post(Task task) override {
            const std::scoped_lock guard(mutex);
            if (!isClosed)
                ManualLoop::post(std::move(task));
        }
        void close() {
            std::unique_lock guard(mutex);
            isClosed = true;
            guard.unlock();
            runPosted();
        }
        std::mutex mutex;
        bool isClosed = false;
    };

    // Writes "folder /a" for folderChanged: with "/a", and for each path of foldersChanged:.
    struct Target : InvocationTarget {
        [[nodiscard]] Protocol methods() const override { return KelvaneClientProtocol; }
        void invoke(Invocation& call) override {
            const Value argument = encodeValue(call.signature().argumentTypes[0], call.argument(0));
            for (const char* kind : {"file", "folder", "state", "setAlert"})
                if (call.selector().starts_with(kind))
                    for (const Value& item : argument.isArray() ? argument.array() : Array{argument})
                        heard.push_back(std::string(kind) + ' ' + item.description());
        }
        std::vector<std::string> heard;
    };

    const std::shared_ptr<Loop> loop_ = std::make_shared<Loop>();
    const std::shared_ptr<Target> target_ = std::make_shared<Target>();
    const std::shared_ptr<KelvaneProxy> proxy_ = KelvaneProxy::create(loop_);
};

} // namespace kelvane::tests
