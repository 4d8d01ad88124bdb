#include "Support/AgentLauncher.h"
#include "Tests/Harness/Recorded.h"
#include "Tests/Harness/ReportingScript.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace kelvane::tests {
namespace {

bool hasChildren() {
    return ::waitid(P_ALL, 0, nullptr, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

TEST(AgentLauncher, StartsTheTrampolineWithItsArgumentsCleanSignalsAndNoDescriptor) {
    const FileDescriptor leaked(::dup2(STDERR_FILENO, 77));
    sigset_t usr1;
    sigset_t before;
    ::sigemptyset(&usr1);
    ::sigaddset(&usr1, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &usr1, &before);
    const auto oldPipe = ::signal(SIGPIPE, SIG_IGN);
    for (const auto& [type, word] :
         {std::pair(1, "launchdaemon\n"), {2, "launchagent\n"}, {0, ""}, {3, ""}}) {
        const ReportingScript script("[ -e /proc/$$/fd/77 ] && echo leaked\n"
                                     "while read -r name mask; do case $name in\n"
                                     "SigBlk:) echo blocked $((0x$mask & 0x200));;\n"
                                     "SigIgn:) echo ignored $((0x$mask & 0x1000));;\n"
                                     "esac; done </proc/self/status; printf '%s\\n' \"$0\" \"$@\"");
        KelvaneTrampoline::trampoline(script.path(), "/opt/a program", 4294967295U, type);
        EXPECT_EQ(script.report(),
                  "blocked 0\nignored 0\n" + script.path() + "\n4294967295\n/opt/a program\n" + word);
        EXPECT_TRUE(eventually([] { return !hasChildren(); })) << "zombies are children, too";
    }
    ::signal(SIGPIPE, oldPipe);
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_TRUE(::sigismember(&after, SIGUSR1) == 1 && ::sigismember(&after, SIGUSR2) == 0);
}

TEST(AgentLauncher, TriesTheNextAttemptWhenOneFailsAndEndsWellWhenNoneIsLeft) {
    const auto attempts = detail::execAttempts("/t", "/p", 7, KelvaneTrampoline::launchDaemon);
    ASSERT_EQ(attempts.size(), 2U);
    EXPECT_EQ(attempts[0].logEntry, "exec: /t 7 /p launchdaemon");
    EXPECT_EQ(attempts[1].logEntry, "exec: /t 7 /p");
    EXPECT_EQ(attempts[1].arguments, (std::vector<std::string>{"/t", "7", "/p"}));

    for (const bool isThere : {true, false}) {
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        const FileDescriptor log(ends[0]);
        FileDescriptor childEnd(ends[1]);
        const pid_t child = detail::forkAndExecute(
            {{"first", {"/no/such/program"}}, {"second", {isThere ? "/bin/true" : "/no/such/program"}}},
            childEnd.get());
        childEnd.reset();
        std::string entries;
        char entry[64];
        for (ssize_t size = 0; (size = ::recv(log.get(), entry, sizeof entry, 0)) > 0;)
            entries.append(entry, static_cast<std::size_t>(size)) += ';';
        EXPECT_EQ(entries, std::string("child forked;first;second;") + (isThere ? "" : "exec failed;"));
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

TEST(AgentLauncher, MakesNoChildForATrampolineThatIsNoExecutableFile) {
    const TemporaryFolder folder;
    const std::string text = folder.write("text", "#!/bin/sh\n");
    const std::pair<std::string, std::string> cases[] = {{folder / "none", "/bin/true"},
                                                         {text, "/bin/true"},
                                                         {folder.path(), "/bin/true"},
                                                         {"/bin/true", "/bin/\xFF"},
                                                         {"/bin/true", std::string("/bin/a\0b", 8)}};
    for (const auto& [trampoline, program] : cases) {
        KelvaneTrampoline::trampoline(trampoline, program, 7, 1);
        EXPECT_FALSE(hasChildren());
    }
}

} // namespace
} // namespace kelvane::tests
