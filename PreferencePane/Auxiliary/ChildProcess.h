#pragma once

#include "Platform/FileDescriptor.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelvane {

// A program that runs beside this one and whose end is looked for: started without a shell, with the signals'
// default actions, no signal blocked, and no descriptor but the standard ones. Belongs to one thread.
//
// Whoever drops it while the program runs leaves it to the process, which has a zombie then until it ends.
class ChildProcess {
public:
    enum class Group { Shared, Own };
    struct Setup {
        Group group = Group::Shared;
        std::vector<std::string> environment; // "NAME=value", in place of this process's own of the name
        bool keepsErrors = false;             // see `errors`
    };

    static constexpr int cannotExecute = 1;

    // None when the system has no room for another process. A program that cannot be executed counts as one
    // that has ended with `cannotExecute`. A name without a slash is looked for on the PATH.
    [[nodiscard]] static std::optional<ChildProcess>
    start(const std::string& program, const std::vector<std::string>& arguments, const Setup& setup);
    [[nodiscard]] static std::optional<ChildProcess> start(const std::string& program,
                                                           const std::vector<std::string>& arguments) {
        return start(program, arguments, Setup());
    }

    // Looks, and reaps it then.
    [[nodiscard]] bool hasEnded();
    void waitForEnd();
    // Asks it to end; nothing when it has.
    void terminate() const;
    // Ends it as soon as the system lets it go, which may be never where its disk does not answer.
    void kill() const;
    // Of one that has ended. A signal counts as 128 and its number, as in a shell.
    [[nodiscard]] int exitStatus() const { return exitStatus_; }
    // What one that has ended wrote to its standard error, without the last line break: the first 4 KiB, when
    // they are kept. Whoever it has started writes in vain from then on.
    [[nodiscard]] std::string errors() const;
    // Readable once it has ended; -1 where the system has no such descriptors, or nothing runs.
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }

private:
    ChildProcess(pid_t pid, FileDescriptor errors);

    bool reap(int options);

    pid_t pid_; // 0: has ended
    int exitStatus_ = cannotExecute;
    FileDescriptor descriptor_;
    FileDescriptor errors_; // a file in memory
};

} // namespace kelvane
