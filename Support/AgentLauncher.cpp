#include "Support/AgentLauncher.h"

#include "Foundation/Format.h"
#include "Foundation/Unicode.h"
#include "Platform/FileDescriptor.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <linux/close_range.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::string_view childForked = "child forked";
constexpr std::string_view execFailed = "exec failed";

bool isExecutableFile(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

// A path with a NUL byte would be truncated there.
bool canBeArgument(const std::string& path) {
    return path.find('\0') == std::string::npos && isUtf8(path);
}

class AllSignalsBlocked {
public:
    AllSignalsBlocked() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~AllSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

// From here to the end of `runChild`, the code runs between fork and exec in a program with threads: it may
// only make system calls, on memory allocated before the fork.

// Writes to standard error when the parent has ended; a failure there is ignored.
void sendEntry(int logSocket, std::string_view entry) {
    if (logSocket < 0)
        return;
    const std::size_t size = std::min(entry.size(), longestLogEntry);
    if (::send(logSocket, entry.data(), size, MSG_NOSIGNAL) >= 0)
        return;
    const std::array<iovec, 2> line{{{const_cast<char*>(entry.data()), size}, {const_cast<char*>("\n"), 1}}};
    [[maybe_unused]] const ssize_t written = ::writev(STDERR_FILENO, line.data(), line.size());
}

// A signal handler of the parent must not run in the child when signals are unblocked: it would act on files
// that both share.
void resetSignals() {
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action {};
        if (::sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_DFL)
            continue;
        if (action.sa_handler == SIG_IGN && number != SIGPIPE)
            continue;
        action = {};
        action.sa_handler = SIG_DFL;
        ::sigaction(number, &action, nullptr);
    }
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

struct PreparedAttempt {
    std::string_view logEntry;
    std::vector<char*> arguments; // with a null pointer at the end
};

[[noreturn]] void runChild(const std::vector<PreparedAttempt>& attempts, int logSocket) {
    resetSignals();
    ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    sendEntry(logSocket, childForked);
    for (const PreparedAttempt& attempt : attempts) {
        sendEntry(logSocket, attempt.logEntry);
        ::execv(attempt.arguments.front(), attempt.arguments.data());
    }
    sendEntry(logSocket, execFailed);
    ::_exit(0);
}

// Writes the child's log entries until it has executed another program or ended, then reaps it. The child
// cannot lock the log or call its sinks, so it sends its entries to this process.
void followChild(pid_t child, const FileDescriptor& log) {
    std::array<char, longestLogEntry> entry{};
    for (;;) {
        const ssize_t size = log ? ::recv(log.get(), entry.data(), entry.size(), 0) : 0;
        if (size <= 0)
            break;
        KelvaneCLog("%s", std::string_view(entry.data(), static_cast<std::size_t>(size)));
    }
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

struct LogChannel {
    FileDescriptor parentEnd;
    FileDescriptor childEnd;
};

// Has no ends when the log is disabled.
LogChannel logChannel() {
    std::array<int, 2> ends{-1, -1};
    if (KelvaneLogEnabled() && ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        KelvaneCLog("no log for the child: %s", errorText());
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

} // namespace

std::vector<detail::ExecAttempt> detail::execAttempts(const std::string& trampolinePath,
                                                      const std::string& launchPath, std::uint32_t pid,
                                                      int targetType) {
    const std::string pidText = std::to_string(pid);
    const auto attempt = [&](std::vector<std::string> typeWord) {
        ExecAttempt made{formatText("exec: %s %s %s", trampolinePath, pidText, launchPath),
                         {trampolinePath, pidText, launchPath}};
        for (std::string& word : typeWord) {
            made.logEntry += ' ' + word;
            made.arguments.push_back(std::move(word));
        }
        return made;
    };
    if (targetType == KelvaneTrampoline::launchAgent)
        return {attempt({"launchagent"})};
    if (targetType == KelvaneTrampoline::launchDaemon)
        return {attempt({"launchdaemon"}), attempt({})};
    return {attempt({})};
}

pid_t detail::forkAndExecute(const std::vector<ExecAttempt>& attempts, int logSocket) {
    std::vector<PreparedAttempt> prepared;
    for (const ExecAttempt& attempt : attempts) {
        prepared.push_back({attempt.logEntry, {}});
        for (const std::string& argument : attempt.arguments)
            prepared.back().arguments.push_back(const_cast<char*>(argument.c_str())); // not written by execv
        prepared.back().arguments.push_back(nullptr);
    }
    const AllSignalsBlocked blocked;
    const pid_t child = ::fork();
    if (child == 0)
        runChild(prepared, logSocket);
    return child;
}

void KelvaneTrampoline::trampoline(const std::string& trampolinePath, const std::string& launchPath,
                                   std::uint32_t pid, int targetType) {
    KelvaneCLog("trampoline:%@ waitForPid:%lu", trampolinePath, pid);
    if (!canBeArgument(trampolinePath) || !canBeArgument(launchPath) || !isExecutableFile(trampolinePath))
        return;
    LogChannel log = logChannel();
    const pid_t child = detail::forkAndExecute(
        detail::execAttempts(trampolinePath, launchPath, pid, targetType), log.childEnd.get());
    if (child < 0) {
        KelvaneCLog("fork failed");
        return;
    }
    log.childEnd.reset();
    KelvaneCLog("parent continuing");
    try {
        const AllSignalsBlocked blocked; // the new thread must not receive the program's signals
        std::thread([child, parentEnd = std::move(log.parentEnd)] {
            followChild(child, parentEnd);
        }).detach();
    } catch (const std::system_error& error) {
        KelvaneCLog("Cannot start the thread that reaps child %d: %s", child, error.what());
    }
}

} // namespace kelvane
