#include "Support/AgentLauncher.h"
#include "Support/Logging.h"
#include "Tests/Harness/ReportingScript.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>

namespace kelvane {
namespace {

using Lines = std::vector<std::string>;

// Logging is on and comes here, as long as this lives.
class LogRecorder {
public:
    LogRecorder() { detail::logEnabled = true; }
    ~LogRecorder() { detail::logEnabled = wasEnabled_; }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    // Once there are as many. Without "parent continuing", which comes at any time between the child's.
    [[nodiscard]] Lines lines(std::size_t count) {
        std::unique_lock guard(mutex_);
        grown_.wait_for(guard, std::chrono::seconds(10), [&] { return lines_.size() >= count; });
        Lines lines = lines_;
        std::erase(lines, "parent continuing");
        return lines;
    }

private:
    const bool wasEnabled_ = detail::logEnabled;
    std::mutex mutex_;
    std::condition_variable grown_;
    Lines lines_;
    LogSinkToken token_ = setLogSink([this](const LogEntry& entry) {
        const std::scoped_lock guard(mutex_);
        lines_.push_back(entry.text);
        grown_.notify_all();
    });
};

bool hasChildren() {
    return ::waitid(P_ALL, 0, nullptr, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

// Zombies are children, too.
bool childrenAreReaped() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (hasChildren() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    return !hasChildren();
}

TEST(AgentLauncher, StartsTheTrampolineWithItsArgumentsCleanSignalsAndNoDescriptor) {
    const FileDescriptor leaked(::dup2(STDERR_FILENO, 77));
    sigset_t usr1;
    sigset_t before;
    ::sigemptyset(&usr1);
    ::sigaddset(&usr1, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &usr1, &before);
    const auto oldPipe = ::signal(SIGPIPE, SIG_IGN);
    const struct {
        int type;
        std::string typeWord;
    } cases[] = {{1, "launchdaemon\n"}, {2, "launchagent\n"}, {0, ""}, {3, ""}};
    for (const auto& each : cases) {
        const tests::ReportingScript script("[ -e /proc/$$/fd/77 ] && echo leaked\n"
                                            "while read -r name mask; do case $name in\n"
                                            "SigBlk:) echo blocked $((0x$mask & 0x200));;\n"
                                            "SigIgn:) echo ignored $((0x$mask & 0x1000));;\n"
                                            "esac; done </proc/self/status; printf '%s\\n' \"$0\" \"$@\"");
        KelvaneTrampoline::trampoline(script.path(), "/opt/a program", 4294967295U, each.type);
        EXPECT_EQ(script.report(), "blocked 0\nignored 0\n" + script.path() +
                                       "\n4294967295\n/opt/a program\n" + each.typeWord);
        EXPECT_TRUE(childrenAreReaped());
    }
    ::signal(SIGPIPE, oldPipe);
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_TRUE(::sigismember(&after, SIGUSR1) == 1 && ::sigismember(&after, SIGUSR2) == 0);
}

TEST(AgentLauncher, TriesADaemonTwiceAndEndsWithStatusZeroWhenNothingCanBeExecuted) {
    const tests::TemporaryFolder folder;
    const std::string broken = folder.write("broken", "#!/no/such/interpreter\n");
    ASSERT_EQ(::chmod(broken.c_str(), 0755), 0);
    const std::string plain = "exec: " + broken + " 7 /bin/true";
    const struct {
        int type;
        Lines attempts;
    } cases[] = {{1, {plain + " launchdaemon", plain}}, {2, {plain + " launchagent"}}, {0, {plain}}};
    for (const auto& each : cases) {
        Lines expected{"trampoline:" + broken + " waitForPid:7", "child forked"};
        expected.insert(expected.end(), each.attempts.begin(), each.attempts.end());
        expected.push_back("exec failed");
        LogRecorder log;
        KelvaneTrampoline::trampoline(broken, "/bin/true", 7, each.type);
        EXPECT_EQ(log.lines(expected.size() + 1), expected);
        EXPECT_TRUE(childrenAreReaped());

        int status = -1;
        const pid_t child =
            detail::forkAndExecute(detail::execAttempts(broken, "/bin/true", 7, each.type), -1);
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

TEST(AgentLauncher, MakesNoChildForATrampolineThatIsNoExecutableFile) {
    const tests::TemporaryFolder folder;
    const std::string text = folder.write("text", "#!/bin/sh\n");
    const std::pair<std::string, std::string> cases[] = {{folder / "none", "/bin/true"},
                                                         {text, "/bin/true"},
                                                         {folder.path(), "/bin/true"},
                                                         {"/bin/true", "/bin/\xFF"},
                                                         {"/bin/true", std::string("/bin/a\0b", 8)}};
    for (const auto& [trampoline, program] : cases) {
        LogRecorder log;
        KelvaneTrampoline::trampoline(trampoline, program, 7, 1);
        EXPECT_EQ(log.lines(1), Lines{"trampoline:" + trampoline + " waitForPid:7"});
        EXPECT_FALSE(hasChildren());
    }
}

} // namespace
} // namespace kelvane
