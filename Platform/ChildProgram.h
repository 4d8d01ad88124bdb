#pragma once

#include "Platform/FileDescriptor.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kelvane {

// Set once, by any thread, and stays set; wakes who polls its descriptor.
class StopSignal {
public:
    StopSignal();

    void set();
    [[nodiscard]] bool isSet() const { return set_; }
    [[nodiscard]] const std::atomic<bool>& flag() const { return set_; }
    [[nodiscard]] int descriptor() const { return event_.get(); } // readable once it is set

private:
    std::atomic<bool> set_{false};
    FileDescriptor event_;
};

// Waits; false at once when it is stopped.
[[nodiscard]] bool waitUnlessStopped(std::chrono::milliseconds duration, const StopSignal& stop);

struct ChildProgram {
    std::vector<std::string> arguments;   // the first one names the program, which is looked for in PATH
    std::vector<std::string> environment; // "NAME=value": beside the caller's own, or instead of it
    std::string withheldVariables = {};   // the beginning of the caller's that do not pass; empty: all pass
    std::string input;                    // for its standard input
    // Each line of its output without the line's end, on the calling thread. True: it has got on with its
    // work.
    std::function<bool(std::string_view)> onLine = [](std::string_view) { return true; };
    std::function<void(std::string_view)> onErrorLine = [](std::string_view) {};
    // Its output is handed over as it comes, and not line by line.
    bool hasBinaryOutput = false;
    std::function<void(pid_t)> onStart = [](pid_t) {}; // as soon as it runs, before anything of it is read
    // Bytes; a longer line of its output is left out, which the outcome tells.
    std::size_t longestLine = std::size_t{1} << 20U;
    std::chrono::milliseconds patience = std::chrono::minutes(2); // it may take that long to get on
    // Or that long, if that is sooner, after the first error line since then that tells of trouble.
    std::chrono::milliseconds patienceInTrouble = std::chrono::minutes(2);
    std::function<bool(std::string_view)> isTrouble = [](std::string_view) { return false; };
    std::chrono::milliseconds grace = std::chrono::seconds(10); // and that long to end when it is told to
    // Called every `lookInterval` on the calling thread. Returns why the program is stuck in a way that
    // SIGINT cannot end; it is then killed. Empty: it is not stuck.
    std::function<std::string(pid_t)> whyOutOfReach = [](pid_t) { return std::string(); };
    std::chrono::milliseconds lookInterval = std::chrono::seconds(5);
    bool hasLowerPriority = false; // than everything else on the machine
    // Whenever it, or what it starts, gives a file a mode without write permission for the owner, nothing
    // happens and it is told that all went well. Without effect where the system cannot filter calls.
    bool ignoresReadOnlyModes = false;
};

struct ChildOutcome {
    enum class End { Exited, Stopped, Stuck, Crashed, NotStarted };

    End end = End::NotStarted;
    int status = 0;           // of one that exited
    std::string errors;       // the end of what it said on standard error, or why it was not started
    bool hasLostLine = false; // its output had one that was too long

    [[nodiscard]] bool succeeded() const { return end == End::Exited && status == 0 && !hasLostLine; }
};

// Runs a program to its end. One that is stopped, or that gets on with nothing for as long as the patience
// lasts, is told to end by SIGINT, and killed after the grace. What it has started itself ends with it. It is
// also interrupted when the calling thread dies, as it does when this process is killed. A
// killed program that the kernel still holds in a call after some seconds is abandoned and reaped later.
//
// Any thread; blocks. The program gets no descriptor but the standard ones. Its SIGPIPE is ignored: when this
// process is killed, the program is to tidy up, not to die of its next word.
[[nodiscard]] ChildOutcome run(const ChildProgram& program, const StopSignal& stop);

// Whether a thread of the process waits in open() for somebody at the other end of a named pipe. False where
// the system does not tell.
[[nodiscard]] bool isOpeningPipe(pid_t process);

} // namespace kelvane
