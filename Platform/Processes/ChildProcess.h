#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/StopSignal.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kelvane {

// Runs other programs as child processes. They start without a shell, with default signal actions, no signal
// blocked, and only the standard descriptors. There are two ways:
//
// - `ChildProcess::start` returns while the program runs. An event loop waits for `descriptor()` and then
//   reads the exit status.
// - `runChild` blocks until the program ends. Meanwhile it passes on the output line by line, calls a
//   function periodically, and ends the program when the stop signal is set or it makes no progress.

// A program to start and its environment.
struct ChildCommand {
    // The first one is the program's name, searched for in PATH unless it contains a slash.
    std::vector<std::string> arguments = {};
    // Entries "NAME=value", added to the caller's variables or replacing those of the same name.
    std::vector<std::string> environment = {};
    // Variables of the caller whose names start with this prefix are not passed on; empty: all are.
    std::string withheldVariables = {};
    // In its own process group the program does not get signals sent to the caller's group, such as the
    // interrupt key of a terminal; in its own session it also survives the terminal.
    enum class Group : std::uint8_t { Callers, Own, OwnSession };
    Group group = Group::Callers;
    // Sends SIGINT when the thread that started the program ends, as it does when the caller is killed.
    // SIGPIPE is ignored then, so that the program can clean up although nobody reads its output.
    bool isInterruptedWithCaller = false;
    bool hasLowerPriority = false; // lower than that of other programs
    // Calls of the program and its children that would give a file a mode without owner write permission do
    // nothing and report success. No effect where the system cannot filter system calls.
    bool ignoresReadOnlyModes = false;
};

// The program's standard streams: descriptors, still owned by the caller, or one of these constants.
struct ChildStreams {
    static constexpr int callers = -1;
    static constexpr int null = -2;     // /dev/null
    static constexpr int inMemory = -3; // for `errors` only: see `ChildProcess::errors`

    int input = callers;
    int output = callers;
    int errors = callers;
};

// A program that runs beside the caller. Belongs to one thread. Destroying the object does not end a running
// program; after its end the program is reaped by a later `start`.
class ChildProcess {
public:
    static constexpr int cannotExecute = 1;

    // None, with the reason in `errno`, when the system cannot start another process. A program that cannot
    // be executed counts as ended with `cannotExecute`.
    [[nodiscard]] static std::optional<ChildProcess> start(const ChildCommand& command,
                                                           const ChildStreams& streams = {});
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ~ChildProcess();

    [[nodiscard]] pid_t id() const { return pid_; } // 0 once known to have ended
    // Readable once the program has ended; -1 where the system has no such descriptors.
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    // Never blocks.
    [[nodiscard]] bool hasEnded();
    void waitForEnd();
    // Does nothing when the program is known to have ended.
    void send(int signal) const;
    // Kills the program, and its process group unless that is the caller's. It ends when the system releases
    // it, which may be never if its disk does not answer.
    void kill() const;

    // Valid only after the program has ended.

    // The value of errno when it could not be executed; 0 when it was.
    [[nodiscard]] int startError() const { return startError_; }
    // False when a signal ended it, or when the status is unknown because another part of the program reaped
    // it.
    [[nodiscard]] bool hasExited() const;
    // 128 plus the number for a signal, as in a shell; `cannotExecute` when unknown.
    [[nodiscard]] int exitStatus() const;
    // The first 4 KiB of the program's standard error, without line breaks at the end; empty unless that was
    // `ChildStreams::inMemory`. After this call, processes that the program has started and that still run
    // fail when they write to their standard error.
    [[nodiscard]] std::string errors() const;

private:
    ChildProcess(pid_t pid, bool hasOwnGroup, FileDescriptor errors);

    bool reap(int options);

    pid_t pid_; // 0: ended
    bool hasOwnGroup_;
    int startError_ = 0;
    std::optional<int> waitStatus_;
    FileDescriptor descriptor_;
    FileDescriptor errors_; // an in-memory file
};

// The result of a periodic check: let the program run, stop it as by the stop signal, or kill it because it
// is stuck so that SIGINT cannot end it.
struct ChildTick {
    enum class Action : std::uint8_t { Continue, Stop, Kill };

    Action action = Action::Continue;
    std::string reason = {}; // why it was killed, for the outcome's errors
};

// The input of a supervised program and how `runChild` monitors it. All functions run on the calling thread.
struct ChildSupervision {
    std::string input = {};                            // written to its standard input
    std::function<void(pid_t)> onStart = [](pid_t) {}; // called before any of its output is read
    // Called with each line of the output, without the line break. Returns true when the line shows progress.
    std::function<bool(std::string_view)> onLine = [](std::string_view) { return true; };
    std::function<void(std::string_view)> onErrorLine = [](std::string_view) {};
    bool hasBinaryOutput = false; // `onLine` gets the data as it arrives instead of lines
    // In bytes. A longer output line is dropped, and the outcome says so.
    std::size_t longestLine = std::size_t{1} << 20U;
    // The program is stopped after this time without progress.
    std::chrono::milliseconds stallTimeout = std::chrono::minutes(2);
    // The same, but counted from the first error line after the last progress for which `isTrouble` is true;
    // the earlier of the two deadlines applies.
    std::chrono::milliseconds stallTimeoutInTrouble = std::chrono::minutes(2);
    std::function<bool(std::string_view)> isTrouble = [](std::string_view) { return false; };
    // Between SIGINT, which asks the program to stop, and SIGKILL.
    std::chrono::milliseconds gracePeriod = std::chrono::seconds(10);
    // How often `onTick` is called.
    std::chrono::milliseconds tickInterval = std::chrono::seconds(5);
    std::function<ChildTick(pid_t)> onTick = [](pid_t) { return ChildTick(); };
};

struct ChildOutcome {
    enum class End : std::uint8_t { Exited, Stopped, Stuck, Crashed, NotStarted };

    End end = End::NotStarted;
    int status = 0;           // of a program that exited
    std::string errors;       // the end of its standard error, or why it was not started
    bool hasLostLine = false; // an output line was too long

    [[nodiscard]] bool succeeded() const { return end == End::Exited && status == 0 && !hasLostLine; }
};

// Runs a program to its end; kills processes it started and left behind. Blocks; callable on any thread. The
// program always has its own process group and is interrupted with the caller. It is abandoned when the
// kernel has not released it some seconds after a kill.
[[nodiscard]] ChildOutcome runChild(ChildCommand command, const ChildSupervision& supervision,
                                    const StopSignal& stop);

// Whether a thread of the process is blocked in open() on a named pipe without a peer. False where the system
// does not say.
[[nodiscard]] bool isOpeningPipe(pid_t process);

} // namespace kelvane
