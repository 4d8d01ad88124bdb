#include "PreferencePane/Auxiliary/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr int signalStatus = 128;

// Not by the C library's function: its header gives it C++ linkage.
int descriptorOf(pid_t pid) {
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

class SpawnSettings {
public:
    explicit SpawnSettings(ChildProcess::Group group) {
        ::posix_spawn_file_actions_init(&files_);
        ::posix_spawn_file_actions_addclosefrom_np(&files_, STDERR_FILENO + 1);
        ::posix_spawnattr_init(&attributes_);
        sigset_t signals;
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        const bool isOwnGroup = group == ChildProcess::Group::Own;
        ::posix_spawnattr_setflags(&attributes_,
                                   static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK |
                                                      (isOwnGroup ? POSIX_SPAWN_SETPGROUP : 0)));
    }
    ~SpawnSettings() {
        ::posix_spawnattr_destroy(&attributes_);
        ::posix_spawn_file_actions_destroy(&files_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    [[nodiscard]] const posix_spawn_file_actions_t* files() const { return &files_; }
    [[nodiscard]] const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t files_{};
    posix_spawnattr_t attributes_{};
};

} // namespace

std::optional<ChildProcess> ChildProcess::start(const std::string& program,
                                                const std::vector<std::string>& arguments, Group group) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const SpawnSettings settings(group);
    pid_t pid = 0;
    const int error = ::posix_spawnp(&pid, program.c_str(), settings.files(), settings.attributes(),
                                     pointers.data(), environ);
    if (error == EAGAIN || error == ENOMEM)
        return std::nullopt;
    return ChildProcess(error == 0 ? pid : 0);
}

ChildProcess::ChildProcess(pid_t pid) : pid_(pid), descriptor_(pid == 0 ? -1 : descriptorOf(pid)) {}

bool ChildProcess::hasEnded() {
    return pid_ == 0 || reap(WNOHANG);
}

void ChildProcess::waitForEnd() {
    while (pid_ != 0 && !reap(0)) {
    }
}

void ChildProcess::kill() {
    if (pid_ != 0)
        ::kill(pid_, SIGKILL);
    waitForEnd();
}

void ChildProcess::terminate() const {
    if (pid_ != 0)
        ::kill(pid_, SIGTERM);
}

bool ChildProcess::reap(int options) {
    int status = 0;
    const pid_t ended = ::waitpid(pid_, &status, options);
    if (ended == 0 || (ended < 0 && errno == EINTR))
        return false;
    // Somebody else has taken its status: what is known is that it has gone.
    if (ended > 0)
        exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : signalStatus + WTERMSIG(status);
    pid_ = 0;
    return true;
}

} // namespace kelvane
