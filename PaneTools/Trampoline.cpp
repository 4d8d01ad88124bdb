// kelvane-trampoline PID PROGRAM [launchagent|launchdaemon]
//
// Waits until the process PID has ended, then starts PROGRAM: without arguments, in its own session, in "/",
// with standard streams on /dev/null. Agent and daemon are started alike.
//
// Exit status: 0 when PROGRAM has been started, 64 for invalid arguments, 69 when PROGRAM cannot be executed,
// 71 for other system errors.

#include "Foundation/Format.h"
#include "Platform/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/syscall.h>
#include <sysexits.h>
#include <unistd.h>

namespace {

constexpr int pollingMilliseconds = 100;

// Returns 0 for an invalid process id.
pid_t processId(std::string_view text) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
    return error == std::errc() && end == text.data() + text.size() && pid > 0 ? pid : 0;
}

bool isTargetType(std::string_view word) {
    return word == "launchagent" || word == "launchdaemon";
}

bool isRunning(pid_t pid) {
    return ::kill(pid, 0) == 0 || errno == EPERM;
}

void waitForEnd(pid_t pid) {
    // A direct system call, because the C library's header gives its function C++ linkage.
    const kelvane::FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (!process && errno == ESRCH)
        return;
    pollfd end{process.get(), POLLIN, 0};
    while (process && ::poll(&end, 1, -1) < 0 && errno == EINTR) {
    }
    // Polls where the system has no process descriptors. A zombie counts as running there.
    while (!process && isRunning(pid))
        ::poll(nullptr, 0, pollingMilliseconds);
}

// The attributes of the new process. Keeps the first error.
class SpawnSettings {
public:
    SpawnSettings() {
        ::posix_spawn_file_actions_init(&files_);
        ::posix_spawnattr_init(&attributes_);
        keep(::posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDWR, 0));
        keep(::posix_spawn_file_actions_adddup2(&files_, STDIN_FILENO, STDOUT_FILENO));
        keep(::posix_spawn_file_actions_adddup2(&files_, STDIN_FILENO, STDERR_FILENO));
        keep(::posix_spawn_file_actions_addchdir_np(&files_, "/"));
        sigset_t signals;
        ::sigfillset(&signals);
        keep(::posix_spawnattr_setsigdefault(&attributes_, &signals));
        ::sigemptyset(&signals);
        keep(::posix_spawnattr_setsigmask(&attributes_, &signals));
        keep(::posix_spawnattr_setflags(&attributes_,
                                        POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&files_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] const posix_spawn_file_actions_t* files() const { return &files_; }
    [[nodiscard]] const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    void keep(int error) {
        if (error_ == 0)
            error_ = error;
    }

    posix_spawn_file_actions_t files_{};
    posix_spawnattr_t attributes_{};
    int error_ = 0;
};

int report(int status, const char* step, const char* program, int error) {
    std::fprintf(stderr, "kelvane-trampoline: %s %s: %s\n", step, program, kelvane::errorText(error).c_str());
    return status;
}

int start(char* program) {
    const SpawnSettings settings;
    if (settings.error() != 0)
        return report(EX_OSERR, "cannot prepare", program, settings.error());
    const std::array<char*, 2> arguments{program, nullptr};
    pid_t started = 0;
    const int error =
        ::posix_spawn(&started, program, settings.files(), settings.attributes(), arguments.data(), environ);
    if (error == 0)
        return EXIT_SUCCESS;
    const bool isOutOfResources = error == EAGAIN || error == ENOMEM || error == EMFILE || error == ENFILE;
    return report(isOutOfResources ? EX_OSERR : EX_UNAVAILABLE, "cannot start", program, error);
}

} // namespace

int main(int count, char** arguments) {
    if (count == 2 && arguments[1] == std::string_view("--version")) {
        std::puts("kelvane-trampoline " KELVANE_VERSION);
        return EXIT_SUCCESS;
    }
    const pid_t pid = count >= 2 ? processId(arguments[1]) : 0;
    if (pid == 0 || count < 3 || count > 4 || (count == 4 && !isTargetType(arguments[3]))) {
        std::fputs("usage: kelvane-trampoline PID PROGRAM [launchagent|launchdaemon]\n", stderr);
        return EX_USAGE;
    }
    // Leaves the caller's terminal, whose closing would end this process. Fails, with no effect, for a
    // group leader, that is, when started by hand.
    ::setsid();
    waitForEnd(pid);
    return start(arguments[2]);
}
