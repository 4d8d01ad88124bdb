#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelvane {

// Starts the trampoline, a small program that waits for a process to end and then starts the daemon or the
// agent: how those are started anew by a process that is itself about to end. Any thread; failures are only
// logged.
class KelvaneTrampoline {
public:
    static constexpr int launchDaemon = 1;
    static constexpr int launchAgent = 2;

    KelvaneTrampoline() = delete;

    // Returns at once. The child stays this process's own child and becomes the trampoline; a thread waits
    // for its end, so that it leaves no zombie in a caller that goes on: not for code that may be unloaded. A
    // caller that ends takes only that thread along, with the log entries that it has not passed on yet.
    static void trampoline(const std::string& trampolinePath, const std::string& launchPath,
                           std::uint32_t pid, int targetType);
};

namespace detail {

// One execution: what is logged before it, and the argument vector with the program in front.
struct ExecAttempt {
    std::string logEntry;
    std::vector<std::string> arguments;
};

// What the child tries, in order.
[[nodiscard]] std::vector<ExecAttempt> execAttempts(const std::string& trampolinePath,
                                                    const std::string& launchPath, std::uint32_t pid,
                                                    int targetType);

// A child that tries `attempts` in turn and ends with status 0 when none succeeds, with every signal's
// default action but for those that are ignored (SIGPIPE is not), no signal blocked, and no descriptor but
// the standard ones. Each log entry is a message on `logSocket`, a packet socket that is closed on execution;
// none when it is -1. The result is fork's: -1 with errno set when there is no child. The caller reaps it.
[[nodiscard]] pid_t forkAndExecute(const std::vector<ExecAttempt>& attempts, int logSocket);

} // namespace detail
} // namespace kelvane
