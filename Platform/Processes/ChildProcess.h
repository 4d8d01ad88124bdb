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

// Other programs as child processes. They are started without a shell, with the signals' default actions, no
// signal blocked, and no descriptor but the standard ones. There are two ways:
//
// - `ChildProcess::start` returns while the program runs. An event loop waits for `descriptor()` and asks how
//   the program has ended.
// - `runChild` blocks until the program has ended. Meanwhile it hands over the output line by line, calls a
//   function at an interval, and ends a program that is stopped or makes no progress any more.

// What is started, and how.
struct ChildCommand {
    // The first one names the program, which is searched for in PATH unless the name holds a slash.
    std::vector<std::string> arguments = {};
    // "NAME=value", beside the caller's variables or instead of those of the same name.
    std::vector<std::string> environment = {};
    // Variables of the caller whose names begin with this are not passed on; empty: all are.
    std::string withheldVariables = {};
    // In a group of its own the program does not get signals for the caller's, such as a terminal's interrupt
    // key sends; in a session of its own it also outlives the terminal.
    enum class Group : std::uint8_t { Callers, Own, OwnSession };
    Group group = Group::Callers;
    // SIGINT when the thread that has started the program ends, which it does when the caller is killed.
    // SIGPIPE is ignored then, so that the program can tidy up although nobody reads what it prints.
    bool isInterruptedWithCaller = false;
    bool hasLowerPriority = false; // than everything else on the machine
    // Whenever the program, or what it starts, gives a file a mode without write permission for the owner,
    // nothing happens and it is told that all went well. Without effect where the system cannot filter calls.
    bool ignoresReadOnlyModes = false;
};

// The program's standard streams: descriptors, which remain the caller's, or one of these constants.
struct ChildStreams {
    static constexpr int callers = -1;
    static constexpr int null = -2;     // /dev/null
    static constexpr int inMemory = -3; // only of `errors`: see `ChildProcess::errors`

    int input = callers;
    int output = callers;
    int errors = callers;
};

// A program that runs beside the caller. Belongs to one thread. When it is destroyed, a program that still
// runs goes on, and is reaped at one of the next starts after its end.
class ChildProcess {
public:
    static constexpr int cannotExecute = 1;

    // None, and `errno` says why, when the system has no room for another process. A program that cannot be
    // executed counts as one that has ended with `cannotExecute`.
    [[nodiscard]] static std::optional<ChildProcess> start(const ChildCommand& command,
                                                           const ChildStreams& streams = {});
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ~ChildProcess();

    [[nodiscard]] pid_t id() const { return pid_; } // 0 once it is known to have ended
    // Readable once it has ended; -1 where the system has no such descriptors.
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    // Does not block.
    [[nodiscard]] bool hasEnded();
    void waitForEnd();
    // Nothing when it is known to have ended.
    void send(int signal) const;
    // Ends it, and its group unless that is the caller's, as soon as the system lets go of it, which may be
    // never where its disk does not answer.
    void kill() const;

    // The following are for one that has ended.

    // errno's number when it could not be executed; 0 when it was.
    [[nodiscard]] int startError() const { return startError_; }
    // False: by a signal, or nobody knows since somebody else has reaped it.
    [[nodiscard]] bool hasExited() const;
    // A signal counts as 128 and its number, as in a shell; `cannotExecute` when nobody knows.
    [[nodiscard]] int exitStatus() const;
    // The first 4 KiB that it wrote to its standard error, without the last line break, when that is in
    // memory. Whatever it has started fails to write there from then on.
    [[nodiscard]] std::string errors() const;

private:
    ChildProcess(pid_t pid, bool hasOwnGroup, FileDescriptor errors);

    bool reap(int options);

    pid_t pid_; // 0: has ended
    bool hasOwnGroup_;
    int startError_ = 0;
    std::optional<int> waitStatus_;
    FileDescriptor descriptor_;
    FileDescriptor errors_; // a file in memory
};

// What a tick has found: whether the program goes on, is stopped as by the stop signal, or is killed because
// it is stuck in a way that SIGINT cannot end.
struct ChildTick {
    enum class Action : std::uint8_t { Continue, Stop, Kill };

    Action action = Action::Continue;
    std::string reason = {}; // of a kill, for the outcome's errors
};

// What `runChild` gives the program, and how it follows it. All functions run on the calling thread.
struct ChildSupervision {
    std::string input = {};                            // for its standard input
    std::function<void(pid_t)> onStart = [](pid_t) {}; // before any of its output is read
    // Each line of its output without the line's end. True: the program has made progress.
    std::function<bool(std::string_view)> onLine = [](std::string_view) { return true; };
    std::function<void(std::string_view)> onErrorLine = [](std::string_view) {};
    bool hasBinaryOutput = false; // `onLine` gets it as it comes, and not line by line
    // Bytes; a longer line of its output is left out, which the outcome tells.
    std::size_t longestLine = std::size_t{1} << 20U;
    // Without progress for this long it is stopped.
    std::chrono::milliseconds stallTimeout = std::chrono::minutes(2);
    // The same, counted from the first error line since the last progress that tells of trouble, if that is
    // sooner.
    std::chrono::milliseconds stallTimeoutInTrouble = std::chrono::minutes(2);
    std::function<bool(std::string_view)> isTrouble = [](std::string_view) { return false; };
    // From SIGINT, which stops it, to SIGKILL.
    std::chrono::milliseconds gracePeriod = std::chrono::seconds(10);
    // Called while the program runs, each time after this interval.
    std::chrono::milliseconds tickInterval = std::chrono::seconds(5);
    std::function<ChildTick(pid_t)> onTick = [](pid_t) { return ChildTick(); };
};

struct ChildOutcome {
    enum class End : std::uint8_t { Exited, Stopped, Stuck, Crashed, NotStarted };

    End end = End::NotStarted;
    int status = 0;           // of one that exited
    std::string errors;       // the end of what it said on standard error, or why it was not started
    bool hasLostLine = false; // its output had one that was too long

    [[nodiscard]] bool succeeded() const { return end == End::Exited && status == 0 && !hasLostLine; }
};

// Runs a program to its end. Any thread; blocks. What the program has started itself ends with it. It always
// has a group of its own and is interrupted with the caller. One that the kernel still holds in a call some
// seconds after it was killed is left behind.
[[nodiscard]] ChildOutcome runChild(ChildCommand command, const ChildSupervision& supervision,
                                    const StopSignal& stop);

// Whether a thread of the process waits in open() for somebody at the other end of a named pipe. False where
// the system does not tell.
[[nodiscard]] bool isOpeningPipe(pid_t process);

} // namespace kelvane
