#include "Platform/Processes/ChildProcess.h"

#include "Platform/Processes/SystemCallFilter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <linux/close_range.h>
#include <mutex>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace kelvane {
namespace {

constexpr int signalStatus = 128;
constexpr std::size_t keptErrorSize = 4096; // in bytes
constexpr int lowestPriority = 19;
// From linux/ioprio.h, which not every system installs.
constexpr int ioprioWhoProcess = 1;
constexpr int ioprioIdle = 3 << 13;

// The caller's variables without the withheld ones and those that the command replaces.
std::vector<std::string> joinedEnvironment(const ChildCommand& command) {
    const std::vector<std::string>& own = command.environment;
    std::vector<std::string> joined = own;
    const auto isReplaced = [&](std::string_view entry) {
        if (!command.withheldVariables.empty() && entry.starts_with(command.withheldVariables))
            return true;
        const std::string_view name = entry.substr(0, entry.find('=') + 1);
        return std::ranges::any_of(own, [&](const std::string& each) { return each.starts_with(name); });
    };
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (!isReplaced(*entry))
            joined.emplace_back(*entry);
    return joined;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Everything that the child needs, prepared before the fork: after it only system calls are safe.
struct Preparation {
    const ChildCommand& command;
    const ChildStreams streams;
    std::vector<char*> arguments;
    std::vector<char*> environment;
    SystemCallFilter filter; // empty: none
    int failure;             // the descriptor that gets errno when the program cannot be executed
    pid_t parent;
};

void setSignals(bool ignoresPipe) {
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action {};
        action.sa_handler = number == SIGPIPE && ignoresPipe ? SIG_IGN : SIG_DFL;
        ::sigaction(number, &action, nullptr);
    }
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void setStream(int number, int source) {
    if (source != ChildStreams::callers)
        ::dup2(source == ChildStreams::null ? ::open("/dev/null", O_RDWR | O_CLOEXEC) : source, number);
}

[[noreturn]] void becomeProgram(Preparation& prepared) {
    const ChildCommand& command = prepared.command;
    if (command.isInterruptedWithCaller) {
        ::prctl(PR_SET_PDEATHSIG, SIGINT);
        if (::getppid() != prepared.parent)
            ::_exit(0); // the parent has died already
    }
    if (command.group == ChildCommand::Group::Own)
        ::setpgid(0, 0);
    if (command.group == ChildCommand::Group::OwnSession)
        ::setsid();
    if (command.hasLowerPriority) {
        ::setpriority(PRIO_PROCESS, 0, lowestPriority);
        ::syscall(SYS_ioprio_set, ioprioWhoProcess, 0, ioprioIdle);
    }
    setStream(STDIN_FILENO, prepared.streams.input);
    setStream(STDOUT_FILENO, prepared.streams.output);
    setStream(STDERR_FILENO, prepared.streams.errors);
    ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    setSignals(command.isInterruptedWithCaller);
    if (!prepared.filter.empty())
        filterSystemCalls(prepared.filter);
    ::execvpe(prepared.arguments.front(), prepared.arguments.data(), prepared.environment.data());
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(prepared.failure, &error, sizeof error);
    ::_exit(ChildProcess::cannotExecute);
}

// Blocks all signals during the fork: a signal handler of the caller must not run in the child.
pid_t forkInto(Preparation& prepared) {
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t id = ::fork();
    if (id == 0)
        becomeProgram(prepared);
    const int error = errno;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return id;
}

// Reaps abandoned children that have ended. The list is never destroyed, because objects that live as long as
// the process may abandon one.
void reapLeftBehind(pid_t another = 0) {
    static std::mutex mutex;
    static std::vector<pid_t>& leftBehind = *new std::vector<pid_t>;
    const std::scoped_lock guard(mutex);
    if (another != 0)
        leftBehind.push_back(another);
    std::erase_if(leftBehind, [](pid_t id) { return ::waitpid(id, nullptr, WNOHANG) != 0; });
}

} // namespace

std::optional<ChildProcess> ChildProcess::start(const ChildCommand& command, const ChildStreams& streams) {
    reapLeftBehind();
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return std::nullopt;
    const FileDescriptor failure(ends[0]);
    FileDescriptor childFailure(ends[1]);
    ChildStreams used = streams;
    FileDescriptor errors;
    if (used.errors == ChildStreams::inMemory) {
        errors.reset(::memfd_create("standard error", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        used.errors = errors ? errors.get() : ChildStreams::callers;
    }
    std::vector<std::string> arguments = command.arguments;
    std::vector<std::string> environment = joinedEnvironment(command);
    Preparation prepared{.command = command,
                         .streams = used,
                         .arguments = pointersTo(arguments),
                         .environment = pointersTo(environment),
                         .filter =
                             command.ignoresReadOnlyModes ? filterOfReadOnlyModes() : SystemCallFilter(),
                         .failure = childFailure.get(),
                         .parent = ::getpid()};
    const pid_t id = forkInto(prepared);
    if (id < 0)
        return std::nullopt;
    childFailure.reset();
    ChildProcess process(id, command.group != ChildCommand::Group::Callers, std::move(errors));
    int error = 0;
    ssize_t size = 0;
    while ((size = ::read(failure.get(), &error, sizeof error)) < 0 && errno == EINTR) {
    }
    if (size == sizeof error) {
        process.startError_ = error;
        process.waitForEnd();
    }
    return process;
}

// Makes the system call directly, because the C library's header declares pidfd_open with C++ linkage.
ChildProcess::ChildProcess(pid_t pid, bool hasOwnGroup, FileDescriptor errors)
    : pid_(pid),
      hasOwnGroup_(hasOwnGroup),
      descriptor_(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))),
      errors_(std::move(errors)) {}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, 0)),
      hasOwnGroup_(other.hasOwnGroup_),
      startError_(other.startError_),
      waitStatus_(other.waitStatus_),
      descriptor_(std::move(other.descriptor_)),
      errors_(std::move(other.errors_)) {}

ChildProcess::~ChildProcess() {
    if (pid_ != 0)
        reapLeftBehind(pid_);
}

bool ChildProcess::hasEnded() {
    return pid_ == 0 || reap(WNOHANG);
}

void ChildProcess::waitForEnd() {
    while (pid_ != 0 && !reap(0)) {
    }
}

void ChildProcess::send(int signal) const {
    if (pid_ != 0)
        ::kill(pid_, signal);
}

void ChildProcess::kill() const {
    if (pid_ != 0 && hasOwnGroup_)
        ::kill(-pid_, SIGKILL);
    send(SIGKILL);
}

bool ChildProcess::hasExited() const {
    return waitStatus_ && WIFEXITED(*waitStatus_);
}

int ChildProcess::exitStatus() const {
    if (!waitStatus_)
        return cannotExecute;
    return hasExited() ? WEXITSTATUS(*waitStatus_) : signalStatus + WTERMSIG(*waitStatus_);
}

// Seals the file: a daemon that the child has started may still have it open as its standard error, and would
// otherwise go on filling memory.
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

// When another part of the program has taken the exit status, only the end of the child is known.
bool ChildProcess::reap(int options) {
    int status = 0;
    const pid_t ended = ::waitpid(pid_, &status, options);
    if (ended == 0 || (ended < 0 && errno == EINTR))
        return false;
    if (ended > 0)
        waitStatus_ = status;
    pid_ = 0;
    return true;
}

} // namespace kelvane
