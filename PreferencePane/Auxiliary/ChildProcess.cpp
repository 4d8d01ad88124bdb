#include "PreferencePane/Auxiliary/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr int signalStatus = 128;
constexpr std::size_t keptErrorSize = 4096;

// Not by the C library's function: its header gives it C++ linkage.
int descriptorOf(pid_t pid) {
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

class SpawnSettings {
public:
    SpawnSettings(ChildProcess::Group group, int standardError) {
        ::posix_spawn_file_actions_init(&files_);
        if (standardError >= 0)
            ::posix_spawn_file_actions_adddup2(&files_, standardError, STDERR_FILENO);
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

std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& entries) {
    std::vector<std::string> all = entries;
    for (char** own = environ; *own != nullptr; ++own) {
        const std::string_view entry(*own);
        const std::string_view name = entry.substr(0, entry.find('=') + 1);
        if (std::ranges::none_of(entries, [&](const std::string& one) { return one.starts_with(name); }))
            all.emplace_back(entry);
    }
    return all;
}

} // namespace

std::optional<ChildProcess> ChildProcess::start(const std::string& program,
                                                const std::vector<std::string>& arguments,
                                                const Setup& setup) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> environment = environmentWith(setup.environment);
    FileDescriptor errors(
        setup.keepsErrors ? ::memfd_create("standard error", MFD_CLOEXEC | MFD_ALLOW_SEALING) : -1);
    const SpawnSettings settings(setup.group, errors.get());
    pid_t pid = 0;
    const int error = ::posix_spawnp(&pid, program.c_str(), settings.files(), settings.attributes(),
                                     pointersTo(words).data(), pointersTo(environment).data());
    if (error == EAGAIN || error == ENOMEM)
        return std::nullopt;
    return ChildProcess(error == 0 ? pid : 0, std::move(errors));
}

ChildProcess::ChildProcess(pid_t pid, FileDescriptor errors)
    : pid_(pid), descriptor_(pid == 0 ? -1 : descriptorOf(pid)), errors_(std::move(errors)) {}

// Sealed, because a daemon that was started keeps its standard error and would fill it for as long as it
// runs.
std::string ChildProcess::errors() const {
    if (!errors_)
        return {};
    ::fcntl(errors_.get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW);
    std::string errors(keptErrorSize, '\0');
    const ssize_t size = ::pread(errors_.get(), errors.data(), errors.size(), 0);
    errors.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    while (errors.ends_with('\n'))
        errors.pop_back();
    return errors;
}

bool ChildProcess::hasEnded() {
    return pid_ == 0 || reap(WNOHANG);
}

void ChildProcess::waitForEnd() {
    while (pid_ != 0 && !reap(0)) {
    }
}

void ChildProcess::kill() const {
    if (pid_ != 0)
        ::kill(pid_, SIGKILL);
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
