#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelvane {

// Starts the trampoline, a small program that waits for a process to end and then starts the daemon or the
// agent. A process that is about to end uses it to restart them. May be called from any thread. Failures are
// logged and not returned.
class KelvaneTrampoline {
public:
    static constexpr int launchDaemon = 1;
    static constexpr int launchAgent = 2;

    KelvaneTrampoline() = delete;

    // Returns at once. A child process becomes the trampoline, and a thread forwards its log and waits for
    // it, so that it does not become a zombie. Because of that thread, code that may be unloaded must not
    // call this. If the caller ends first, the trampoline continues and its remaining log entries are lost.
    static void trampoline(const std::string& trampolinePath, const std::string& launchPath,
                           std::uint32_t pid, int targetType);
};

namespace detail {

// One attempt to execute a program: the log entry that precedes it, and the arguments, the program first.
struct ExecAttempt {
    std::string logEntry;
    std::vector<std::string> arguments;
};

// Returns the attempts that the child makes, in this order.
[[nodiscard]] std::vector<ExecAttempt> execAttempts(const std::string& trampolinePath,
                                                    const std::string& launchPath, std::uint32_t pid,
                                                    int targetType);

// Forks a child that makes the attempts in turn, and exits with status 0 if none succeeds. In the child no
// signal is blocked, ignored ones except SIGPIPE stay ignored, and only the standard descriptors are open.
// Each log entry is sent as a packet on `logSocket`, which is closed on execution; -1 stands for no log.
// Returns the result of fork: -1 with errno on failure. The caller has to reap the child.
[[nodiscard]] pid_t forkAndExecute(const std::vector<ExecAttempt>& attempts, int logSocket);

} // namespace detail
} // namespace kelvane
