#include "Tests/Harness/ReportingScript.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>
#include <vector>

namespace kelvane {
namespace {

// From here on the system knows nothing of pidfd_open, as older ones do not.
void refuseProcessDescriptors() {
    std::array<sock_filter, 4> steps{{{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
                                      {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_pidfd_open},
                                      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | ENOSYS},
                                      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW}}};
    const sock_fprog filter{steps.size(), steps.data()};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0) != 0)
        ::_exit(99);
}

pid_t startTrampoline(std::vector<std::string> arguments, bool hasProcessDescriptors = true) {
    arguments.insert(arguments.begin(), KELVANE_TRAMPOLINE);
    std::vector<char*> vector;
    for (std::string& argument : arguments)
        vector.push_back(argument.data());
    vector.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        if (!hasProcessDescriptors)
            refuseProcessDescriptors();
        ::execv(vector.front(), vector.data());
        ::_exit(98);
    }
    return child;
}

int statusOf(pid_t child) {
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A process that runs until it is killed.
pid_t waitingProcess() {
    const pid_t child = ::fork();
    if (child == 0)
        for (;;)
            ::pause();
    return child;
}

pid_t endedProcess(pid_t process = waitingProcess()) {
    ::kill(process, SIGKILL);
    statusOf(process);
    return process;
}

TEST(Trampoline, StartsTheProgramDetachedAndOnlyAfterTheProcessHasEnded) {
    for (const bool hasProcessDescriptors : {true, false}) {
        const tests::ReportingScript script(
            "read -r pid name state parent group session rest </proc/$$/stat\n"
            "[ $session = $$ ] && echo leader; pwd; echo $#; readlink /proc/$$/fd/0 /proc/$$/fd/2");
        const pid_t process = waitingProcess();
        const pid_t trampoline =
            startTrampoline({std::to_string(process), script.path(), "launchagent"}, hasProcessDescriptors);
        EXPECT_FALSE(script.hasStarted(300));
        endedProcess(process);
        EXPECT_EQ(script.report(), "leader\n/\n0\n/dev/null\n/dev/null\n");
        EXPECT_EQ(statusOf(trampoline), EX_OK);
    }
}

TEST(Trampoline, SaysByItsStatusWhatBecameOfIt) {
    const std::string ended = std::to_string(endedProcess());
    const std::pair<std::vector<std::string>, int> cases[] = {
        {{ended, "/bin/true"}, EX_OK},
        {{ended}, EX_USAGE},
        {{"0", "/bin/true"}, EX_USAGE},
        {{"-1", "/bin/true"}, EX_USAGE},
        {{"4294967295", "/bin/true"}, EX_USAGE},
        {{"12x", "/bin/true"}, EX_USAGE},
        {{ended, "/bin/true", "launch"}, EX_USAGE},
        {{ended, "/bin/true", "launchdaemon", "more"}, EX_USAGE},
        {{ended, "/no/such/program", "launchdaemon"}, EX_UNAVAILABLE},
        {{ended, "/etc/passwd"}, EX_UNAVAILABLE},
    };
    for (const auto& [arguments, status] : cases)
        EXPECT_EQ(statusOf(startTrampoline(arguments)), status) << testing::PrintToString(arguments);
}

} // namespace
} // namespace kelvane
