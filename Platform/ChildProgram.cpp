#include "Platform/ChildProgram.h"

#include "Foundation/Format.h"
#include "Platform/PipeLines.h"
#include "Platform/SystemCallFilter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/close_range.h>
#include <mutex>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t longestErrorLine = std::size_t{1} << 20U;
constexpr std::size_t errorsKept = 4096; // bytes
constexpr int lowestPriority = 19;
constexpr milliseconds graceOfKilled(3000);
// From linux/ioprio.h, which not every system installs.
constexpr int ioprioWhoProcess = 1;
constexpr int ioprioIdle = 3 << 13;

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;

    [[nodiscard]] static std::optional<Pipe> make() {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            return std::nullopt;
        return Pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    }
};

// The caller's variables, less those that are withheld or have the same name.
std::vector<std::string> joinedEnvironment(const ChildProgram& program) {
    const std::vector<std::string>& own = program.environment;
    std::vector<std::string> joined = own;
    const auto isReplaced = [&](std::string_view entry) {
        if (!program.withheldVariables.empty() && entry.starts_with(program.withheldVariables))
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

// Everything that the child needs, made before the fork: after it only system calls are safe.
struct Preparation {
    std::vector<char*> arguments;
    std::vector<char*> environment;
    int input = -1;
    int output = -1;
    int errors = -1;
    int failure = -1; // errno's number goes there when the program cannot be run
    pid_t parent = 0;
    bool hasLowerPriority = false;
    SystemCallFilter filter = {}; // of its system calls
};

void setSignals() {
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action {};
        action.sa_handler = number == SIGPIPE ? SIG_IGN : SIG_DFL;
        ::sigaction(number, &action, nullptr);
    }
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void becomeProgram(Preparation& prepared) {
    ::prctl(PR_SET_PDEATHSIG, SIGINT);
    if (::getppid() != prepared.parent)
        ::_exit(0);  // the parent was quicker to die
    ::setpgid(0, 0); // the interrupt key of a terminal is for the daemon, which passes it on
    if (prepared.hasLowerPriority) {
        ::setpriority(PRIO_PROCESS, 0, lowestPriority);
        ::syscall(SYS_ioprio_set, ioprioWhoProcess, 0, ioprioIdle);
    }
    ::dup2(prepared.input, STDIN_FILENO);
    ::dup2(prepared.output, STDOUT_FILENO);
    ::dup2(prepared.errors, STDERR_FILENO);
    ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    setSignals();
    if (!prepared.filter.empty())
        filterSystemCalls(prepared.filter);
    ::execvpe(prepared.arguments.front(), prepared.arguments.data(), prepared.environment.data());
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(prepared.failure, &error, sizeof error);
    ::_exit(1);
}

// Reaps those killed children that have ended since they were abandoned.
void reapAbandoned(pid_t another = 0) {
    static std::mutex mutex;
    static std::vector<pid_t> abandoned;
    const std::scoped_lock guard(mutex);
    if (another != 0)
        abandoned.push_back(another);
    std::erase_if(abandoned, [](pid_t id) { return ::waitpid(id, nullptr, WNOHANG) != 0; });
}

class Child {
public:
    Child(const ChildProgram& program, const StopSignal& stop) : program_(program), stop_(stop) {}

    ChildOutcome run() {
        reapAbandoned();
        if (!start())
            return outcome_;
        program_.onStart(id_);
        outcome_.end = ChildOutcome::End::Exited;
        lastProgress_ = lastLook_ = Clock::now();
        while (!hasEnded_ && !isAbandoned_)
            turn();
        if (isAbandoned_)
            reapAbandoned(id_);
        else
            reap();
        while (readSome()) { // no more than the pipes hold
        }
        outcome_.hasLostLine = output_->hasLost();
        return outcome_;
    }

private:
    bool start() {
        auto input = Pipe::make();
        auto output = Pipe::make();
        auto errors = Pipe::make();
        auto failure = Pipe::make();
        if (!input || !output || !errors || !failure)
            return fail(errno);
        std::vector<std::string> arguments = program_.arguments;
        std::vector<std::string> environment = joinedEnvironment(program_);
        Preparation prepared{pointersTo(arguments),
                             pointersTo(environment),
                             input->readEnd.get(),
                             output->writeEnd.get(),
                             errors->writeEnd.get(),
                             failure->writeEnd.get(),
                             ::getpid(),
                             program_.hasLowerPriority,
                             program_.ignoresReadOnlyModes ? filterOfReadOnlyModes() : SystemCallFilter()};
        id_ = ::fork();
        if (id_ == 0)
            becomeProgram(prepared);
        if (id_ < 0)
            return fail(errno);
        failure->writeEnd.reset();
        int error = 0;
        if (::read(failure->readEnd.get(), &error, sizeof error) == sizeof error) {
            reap();
            return fail(error);
        }
        handle_.reset(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0)));
        if (!handle_)
            return abandon(errno); // its end would not be noticed
        input_ = std::move(input->writeEnd);
        ::fcntl(input_.get(), F_SETFL, O_WRONLY | O_NONBLOCK);
        output_.emplace(std::move(output->readEnd), program_.longestLine, program_.hasBinaryOutput);
        errors_.emplace(std::move(errors->readEnd), longestErrorLine);
        return true;
    }

    bool fail(int error) {
        outcome_.end = ChildOutcome::End::NotStarted;
        outcome_.errors = program_.arguments.front() + ": " + errorText(error);
        return false;
    }

    bool abandon(int error) {
        ::kill(id_, SIGKILL);
        reap();
        return fail(error);
    }

    // One wait for whatever happens next.
    void turn() {
        std::array<pollfd, 5> waits{{{handle_.get(), POLLIN, 0},
                                     {output_->descriptor(), POLLIN, 0},
                                     {errors_->descriptor(), POLLIN, 0},
                                     {input_.get(), POLLOUT, 0},
                                     {isEnding_ ? -1 : stop_.descriptor(), POLLIN, 0}}};
        ::poll(waits.data(), waits.size(),
               static_cast<int>(std::min(timeLeft(), program_.lookInterval).count()));
        readSome();
        if (waits[3].revents != 0)
            writeInput();
        hasEnded_ = (waits[0].revents & POLLIN) != 0;
        if (hasEnded_)
            return;
        if (stop_.isSet())
            end(ChildOutcome::End::Stopped);
        else if (timeLeft() == milliseconds(0))
            end(ChildOutcome::End::Stuck);
        look();
    }

    void look() {
        if (isKilled_ || Clock::now() - lastLook_ < program_.lookInterval)
            return;
        lastLook_ = Clock::now();
        const std::string reason = program_.whyOutOfReach(id_);
        if (reason.empty())
            return;
        outcome_.end = isEnding_ ? outcome_.end : ChildOutcome::End::Stuck;
        outcome_.errors.append(outcome_.errors.empty() ? "" : "\n").append(reason);
        kill();
    }

    [[nodiscard]] milliseconds timeLeft() const {
        const milliseconds grace = isKilled_ ? graceOfKilled : program_.grace;
        auto deadline = isEnding_ ? endingSince_ + grace : lastProgress_ + program_.patience;
        if (!isEnding_ && troubledSince_)
            deadline = std::min(deadline, *troubledSince_ + program_.patienceInTrouble);
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        return std::clamp<milliseconds>(left, milliseconds(0), std::chrono::hours(1));
    }

    void end(ChildOutcome::End why) {
        if (!isEnding_) {
            isEnding_ = true;
            endingSince_ = Clock::now();
            outcome_.end = why;
            ::kill(id_, SIGINT);
        } else if (timeLeft() == milliseconds(0)) {
            isAbandoned_ = isKilled_;
            kill();
        }
    }

    void kill() {
        ::kill(-id_, SIGKILL);
        ::kill(id_, SIGKILL);
        isEnding_ = isKilled_ = true;
        endingSince_ = Clock::now(); // until the system has done it
    }

    // False: there is nothing more for now.
    bool readSome() {
        const bool isMoreOutput = output_->readInto([this](std::string_view line) {
            if (!program_.onLine(line))
                return;
            lastProgress_ = Clock::now();
            troubledSince_.reset();
        });
        const bool areMoreErrors = errors_->readInto([this](std::string_view line) {
            program_.onErrorLine(line);
            if (!troubledSince_ && program_.isTrouble(line))
                troubledSince_ = Clock::now();
            outcome_.errors.append(outcome_.errors.empty() ? "" : "\n").append(line);
            if (outcome_.errors.size() > errorsKept)
                outcome_.errors.erase(0, outcome_.errors.size() - errorsKept);
        });
        return isMoreOutput || areMoreErrors;
    }

    void writeInput() {
        while (written_ < program_.input.size()) {
            const ssize_t count =
                ::write(input_.get(), program_.input.data() + written_, program_.input.size() - written_);
            if (count < 0 && errno == EAGAIN)
                return;
            if (count < 0 && errno != EINTR)
                break; // it does not want the rest
            written_ += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        }
        input_.reset();
    }

    void reap() {
        int status = SIGKILL;  // of a child whose end somebody else has taken: not known, and so no success
        ::kill(-id_, SIGKILL); // what it has started and left behind
        while (::waitpid(id_, &status, 0) < 0 && errno == EINTR) {
        }
        if (WIFEXITED(status))
            outcome_.status = WEXITSTATUS(status);
        if (WIFEXITED(status) && outcome_.status == 0)
            outcome_.end = ChildOutcome::End::Exited; // it had done its work before it heard
        else if (!WIFEXITED(status) && outcome_.end == ChildOutcome::End::Exited)
            outcome_.end = ChildOutcome::End::Crashed;
    }

    const ChildProgram& program_;
    const StopSignal& stop_;
    ChildOutcome outcome_;
    pid_t id_ = 0;
    FileDescriptor handle_;
    FileDescriptor input_;
    std::size_t written_ = 0;
    std::optional<PipeLines> output_;
    std::optional<PipeLines> errors_;
    Clock::time_point lastProgress_;
    std::optional<Clock::time_point> troubledSince_; // and nothing done since
    Clock::time_point endingSince_;
    Clock::time_point lastLook_;
    bool isEnding_ = false;
    bool isKilled_ = false;
    bool isAbandoned_ = false;
    bool hasEnded_ = false;
};

} // namespace

StopSignal::StopSignal() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void StopSignal::set() {
    set_ = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(event_.get(), &one, sizeof one);
}

bool waitUnlessStopped(milliseconds duration, const StopSignal& stop) {
    pollfd wait{stop.descriptor(), POLLIN, 0};
    ::poll(&wait, 1, static_cast<int>(duration.count()));
    return !stop.isSet();
}

ChildOutcome run(const ChildProgram& program, const StopSignal& stop) {
    return Child(program, stop).run();
}

bool isOpeningPipe(pid_t process) {
    std::error_code error;
    for (std::filesystem::directory_iterator thread("/proc/" + std::to_string(process) + "/task", error);
         !error && thread != std::filesystem::directory_iterator(); thread.increment(error)) {
        std::string function; // of the kernel
        if (std::ifstream(thread->path() / "wchan") >> function && function == "wait_for_partner")
            return true;
    }
    return false;
}

} // namespace kelvane
