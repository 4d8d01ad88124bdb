#include "Platform/Processes/ChildProcess.h"

#include "Foundation/Format.h"
#include "Platform/Processes/PipeLines.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t longestErrorLine = std::size_t{1} << 20U;
constexpr std::size_t errorsKept = 4096; // in bytes
constexpr milliseconds graceOfKilled(3000);

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

class SupervisedChild {
public:
    SupervisedChild(ChildCommand command, const ChildSupervision& supervision, const StopSignal& stop)
        : command_(std::move(command)), supervision_(supervision), stop_(stop) {
        command_.group = ChildCommand::Group::Own;
        command_.isInterruptedWithCaller = true;
    }

    ChildOutcome run() {
        if (!start())
            return outcome_;
        supervision_.onStart(process_->id());
        outcome_.end = ChildOutcome::End::Exited;
        lastProgress_ = lastTick_ = Clock::now();
        while (!hasEnded_ && !isLeftBehind_)
            turn();
        if (hasEnded_)
            noteEnd();
        while (readSome()) { // limited to what the pipes hold
        }
        outcome_.hasLostLine = output_->hasLost();
        return outcome_;
    }

private:
    bool start() {
        auto input = Pipe::make();
        auto output = Pipe::make();
        auto errors = Pipe::make();
        if (!input || !output || !errors)
            return fail(errno);
        auto process = ChildProcess::start(command_, {.input = input->readEnd.get(),
                                                      .output = output->writeEnd.get(),
                                                      .errors = errors->writeEnd.get()});
        if (!process)
            return fail(errno);
        if (process->startError() != 0)
            return fail(process->startError());
        if (process->descriptor() < 0) { // without a descriptor its end would not be noticed
            const int error = errno;
            process->kill();
            process->waitForEnd();
            return fail(error);
        }
        process_.emplace(std::move(*process));
        input_ = std::move(input->writeEnd);
        ::fcntl(input_.get(), F_SETFL, O_WRONLY | O_NONBLOCK);
        output_.emplace(std::move(output->readEnd), supervision_.longestLine, supervision_.hasBinaryOutput);
        errors_.emplace(std::move(errors->readEnd), longestErrorLine);
        return true;
    }

    bool fail(int error) {
        outcome_.end = ChildOutcome::End::NotStarted;
        outcome_.errors = command_.arguments.front() + ": " + errorText(error);
        return false;
    }

    // Waits once, for whichever event comes first.
    void turn() {
        std::array<pollfd, 5> waits{{{process_->descriptor(), POLLIN, 0},
                                     {output_->descriptor(), POLLIN, 0},
                                     {errors_->descriptor(), POLLIN, 0},
                                     {input_.get(), POLLOUT, 0},
                                     {isEnding_ ? -1 : stop_.descriptor(), POLLIN, 0}}};
        const milliseconds untilTick = isKilled_ ? graceOfKilled : timeUntil(nextTick());
        ::poll(waits.data(), waits.size(), static_cast<int>(std::min(timeLeft(), untilTick).count()));
        readSome();
        if (waits[3].revents != 0)
            writeInput();
        hasEnded_ = (waits[0].revents & POLLIN) != 0;
        if (hasEnded_)
            return;
        if (stop_.isSet() || isStoppedByTick_)
            end(ChildOutcome::End::Stopped);
        else if (timeLeft() == milliseconds(0))
            end(ChildOutcome::End::Stuck);
        if (!isKilled_ && timeUntil(nextTick()) == milliseconds(0))
            tick();
    }

    void tick() {
        const ChildTick found = supervision_.onTick(process_->id());
        lastTick_ = Clock::now();
        if (found.action == ChildTick::Action::Stop && !isStoppedByTick_) {
            isStoppedByTick_ = true;
            end(ChildOutcome::End::Stopped);
        } else if (found.action == ChildTick::Action::Kill) {
            outcome_.end = isEnding_ ? outcome_.end : ChildOutcome::End::Stuck;
            addError(found.reason);
            kill();
        }
    }

    [[nodiscard]] Clock::time_point nextTick() const { return lastTick_ + supervision_.tickInterval; }

    [[nodiscard]] milliseconds timeLeft() const {
        const milliseconds grace = isKilled_ ? graceOfKilled : supervision_.gracePeriod;
        auto deadline = isEnding_ ? endingSince_ + grace : lastProgress_ + supervision_.stallTimeout;
        if (!isEnding_ && troubledSince_)
            deadline = std::min(deadline, *troubledSince_ + supervision_.stallTimeoutInTrouble);
        return timeUntil(deadline);
    }

    [[nodiscard]] static milliseconds timeUntil(Clock::time_point deadline) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        return std::clamp<milliseconds>(left, milliseconds(0), std::chrono::hours(1));
    }

    void end(ChildOutcome::End why) {
        if (!isEnding_) {
            isEnding_ = true;
            endingSince_ = Clock::now();
            outcome_.end = why;
            process_->send(SIGINT);
        } else if (timeLeft() == milliseconds(0)) {
            isLeftBehind_ = isKilled_;
            kill();
        }
    }

    void kill() {
        process_->kill();
        isEnding_ = isKilled_ = true;
        endingSince_ = Clock::now(); // `graceOfKilled` begins
    }

    // Returns false when nothing is left to read for now.
    bool readSome() {
        const bool isMoreOutput = output_->readInto([this](std::string_view line) {
            if (!supervision_.onLine(line))
                return;
            lastProgress_ = Clock::now();
            troubledSince_.reset();
        });
        const bool areMoreErrors = errors_->readInto([this](std::string_view line) {
            supervision_.onErrorLine(line);
            if (!troubledSince_ && supervision_.isTrouble(line))
                troubledSince_ = Clock::now();
            addError(line);
        });
        return isMoreOutput || areMoreErrors;
    }

    void addError(std::string_view line) {
        outcome_.errors.append(outcome_.errors.empty() ? "" : "\n").append(line);
        if (outcome_.errors.size() > errorsKept)
            outcome_.errors.erase(0, outcome_.errors.size() - errorsKept);
    }

    void writeInput() {
        const std::string& input = supervision_.input;
        while (written_ < input.size()) {
            const ssize_t count = ::write(input_.get(), input.data() + written_, input.size() - written_);
            if (count < 0 && errno == EAGAIN)
                return;
            if (count < 0 && errno != EINTR)
                break; // the program has closed its standard input
            written_ += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        }
        input_.reset();
    }

    void noteEnd() {
        process_->kill(); // kills what the program has left running in its group
        process_->waitForEnd();
        if (process_->hasExited())
            outcome_.status = process_->exitStatus();
        if (process_->hasExited() && outcome_.status == 0)
            outcome_.end = ChildOutcome::End::Exited; // it finished its work before the signal arrived
        else if (!process_->hasExited() && outcome_.end == ChildOutcome::End::Exited)
            outcome_.end = ChildOutcome::End::Crashed;
    }

    ChildCommand command_;
    const ChildSupervision& supervision_;
    const StopSignal& stop_;
    ChildOutcome outcome_;
    std::optional<ChildProcess> process_;
    FileDescriptor input_;
    std::size_t written_ = 0;
    std::optional<PipeLines> output_;
    std::optional<PipeLines> errors_;
    Clock::time_point lastProgress_;
    std::optional<Clock::time_point> troubledSince_; // first line of trouble after the last progress
    Clock::time_point endingSince_;
    Clock::time_point lastTick_;
    bool isStoppedByTick_ = false;
    bool isEnding_ = false;
    bool isKilled_ = false;
    bool isLeftBehind_ = false;
    bool hasEnded_ = false;
};

} // namespace

ChildOutcome runChild(ChildCommand command, const ChildSupervision& supervision, const StopSignal& stop) {
    return SupervisedChild(std::move(command), supervision, stop).run();
}

bool isOpeningPipe(pid_t process) {
    std::error_code error;
    for (std::filesystem::directory_iterator thread("/proc/" + std::to_string(process) + "/task", error);
         !error && thread != std::filesystem::directory_iterator(); thread.increment(error)) {
        std::string function; // the kernel function in which the thread sleeps
        if (std::ifstream(thread->path() / "wchan") >> function && function == "wait_for_partner")
            return true;
    }
    return false;
}

} // namespace kelvane
