#include "Tests/Harness/ReportingScript.h"
#include "Tests/Tools/ChildProgram.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <sysexits.h>

namespace kelvane::tests {
namespace {

// A process that runs until it is killed.
pid_t waitingProcess() {
    const pid_t child = ::fork();
    if (child == 0)
        for (;;)
            ::pause();
    return child;
}

void end(pid_t process) {
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
}

TEST(Trampoline, StartsTheProgramDetachedAndOnlyAfterTheProcessHasEnded) {
    const ReportingScript script(
        "read -r pid name state parent group session rest </proc/$$/stat\n"
        "[ $session = $$ ] && echo leader; pwd; echo $#; readlink /proc/$$/fd/0 /proc/$$/fd/2");
    const pid_t process = waitingProcess();
    ChildProgram trampoline({KELVANE_TRAMPOLINE, std::to_string(process), script.path(), "launchagent"}, {});
    EXPECT_FALSE(script.hasStarted(300));
    end(process);
    EXPECT_EQ(script.report(), "leader\n/\n0\n/dev/null\n/dev/null\n");
    EXPECT_EQ(trampoline.finish().status, EX_OK);
}

TEST(Trampoline, SaysByItsStatusWhatBecameOfIt) {
    const pid_t process = waitingProcess();
    end(process);
    const std::string ended = std::to_string(process);
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
        {{ended, "/etc/passwd"}, EX_UNAVAILABLE}};
    for (const auto& [arguments, status] : cases) {
        std::vector<std::string> words{KELVANE_TRAMPOLINE};
        words.insert(words.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(ChildProgram(words, {}).finish().status, status) << testing::PrintToString(arguments);
    }
}

} // namespace
} // namespace kelvane::tests
