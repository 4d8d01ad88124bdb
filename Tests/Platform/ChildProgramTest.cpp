#include "Platform/ChildProgram.h"

#include "Platform/DetachedProgram.h"
#include "Tests/Harness/ReportingScript.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using End = ChildOutcome::End;

ChildProgram shell(const std::string& script) {
    ChildProgram program;
    program.arguments = {"sh", "-c", script};
    return program;
}

TEST(ChildProgram, TakesInputAndHandsOverWhatItSaysLineByLine) {
    ChildProgram program = shell("cat; echo $NAME; sleep 0 | printf 'no end'; echo bad >&2; exit 7");
    program.input = std::string(1U << 18U, 'x') + "\nsecond\n";
    program.environment = {"NAME=value"};
    std::vector<std::string> lines;
    program.onLine = [&lines](std::string_view line) {
        lines.emplace_back(line);
        return true;
    };
    const ChildOutcome outcome = run(program, StopSignal());
    EXPECT_EQ(outcome.end, End::Exited);
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.errors, "bad");
    EXPECT_EQ(lines, (std::vector<std::string>{std::string(1U << 18U, 'x'), "second", "value", "no end"}));
}

TEST(ChildProgram, TellsThatALineWasTooLong) {
    for (const std::size_t longest : {5U, 6U}) {
        ChildProgram program = shell("echo 123456; echo short");
        program.longestLine = longest;
        std::vector<std::string> lines;
        program.onLine = [&lines](std::string_view line) {
            lines.emplace_back(line);
            return true;
        };
        const ChildOutcome outcome = run(program, StopSignal());
        EXPECT_EQ(outcome.hasLostLine, longest == 5);
        EXPECT_EQ(outcome.succeeded(), longest == 6);
        EXPECT_EQ(lines.size(), longest - 4);
    }
}

// One that talks without a pause leaves no moment in which there is nothing to read.
TEST(ChildProgram, StopsOneThatNeverFallsSilent) {
    ChildProgram program;
    program.arguments = {"yes"};
    StopSignal stop;
    std::size_t lines = 0;
    program.onLine = [&](std::string_view) {
        if (++lines == 100'000)
            stop.set();
        return true;
    };
    EXPECT_EQ(run(program, stop).end, End::Stopped);
}

TEST(ChildProgram, SaysHowOneEndsThatDoesNotRunToItsEnd) {
    const StopSignal never;
    StopSignal stopped;
    stopped.set();
    ChildProgram deaf = shell("trap '' INT; echo; while true; do sleep 1; done");
    deaf.grace = 50ms;
    ChildProgram idle = shell("while true; do echo; sleep 0.01; done");
    idle.onLine = [](std::string_view) { return false; };
    idle.patience = 50ms;
    ChildProgram troubled = shell("echo trouble >&2; while true; do sleep 0.01; done");
    troubled.patience = 1h;
    troubled.patienceInTrouble = 50ms;
    troubled.isTrouble = [](std::string_view line) { return line == "trouble"; };
    ChildProgram cutOff = shell("trap '' INT; echo; while true; do sleep 1; done");
    cutOff.whyOutOfReach = [](pid_t) { return std::string("the share is silent"); };
    cutOff.lookInterval = 50ms;
    const tests::TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    ChildProgram opening = shell("read line < '" + folder / "pipe" + "'");
    opening.whyOutOfReach = [](pid_t id) { return std::string(isOpeningPipe(id) ? "it opens a pipe" : ""); };
    opening.lookInterval = 50ms;
    ChildProgram missing;
    missing.arguments = {"/no/such/program"};
    const ChildOutcome silent = run(cutOff, never);
    EXPECT_EQ(silent.end, End::Stuck);
    EXPECT_EQ(silent.errors, "the share is silent");
    EXPECT_EQ(run(opening, never).errors, "it opens a pipe");
    EXPECT_EQ(run(shell("trap 'exit 5' INT; while true; do sleep 0.01; done"), stopped).end, End::Stopped);
    EXPECT_EQ(run(deaf, stopped).end, End::Stopped);
    EXPECT_EQ(run(shell("exit 0"), never).end, End::Exited);
    EXPECT_EQ(run(idle, never).end, End::Stuck);
    EXPECT_EQ(run(troubled, never).end, End::Stuck);
    EXPECT_EQ(run(shell("kill -9 $$"), never).end, End::Crashed);
    EXPECT_EQ(run(missing, never).end, End::NotStarted);
    EXPECT_NE(run(missing, never).errors.find("/no/such/program"), std::string::npos);
    // Whoever takes the ends of children for itself leaves nothing to call a success.
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_NE(run(shell("exit 0"), never).end, End::Exited);
    std::signal(SIGCHLD, before);
    // A grandchild that keeps the pipes open is not waited for.
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(run(shell("sleep 30 & exit 0"), never).succeeded());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST(DetachedProgram, HasASessionOfItsOwnAndSaysWhenItCannotStart) {
    const tests::ReportingScript script("cut -d' ' -f6 /proc/$$/stat");
    EXPECT_EQ(startDetached({script.path()}), "");
    const std::string session = script.report();
    ASSERT_FALSE(session.empty());
    EXPECT_NE(std::stoi(session), ::getsid(0)) << "a terminal that closes would end it";
    EXPECT_EQ(startDetached({"/no/such/program"}), "/no/such/program: No such file or directory");
}

// The waiting thread dies with a process of its own.
TEST(ChildProgram, IsInterruptedWhenTheThreadDiesThatWaitsForIt) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const std::string told = "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(ends[1]);
    const pid_t parent = ::fork();
    if (parent == 0) {
        static_cast<void>(run(shell("trap 'echo i >" + told +
                                    "; exit' INT; kill -9 $PPID; while true; do "
                                    "sleep 0.01; done"),
                              StopSignal()));
        ::_exit(0);
    }
    ASSERT_EQ(::waitpid(parent, nullptr, 0), parent);
    pollfd waiting{ends[0], POLLIN, 0};
    EXPECT_EQ(::poll(&waiting, 1, 20'000), 1);
    ::close(ends[0]);
    ::close(ends[1]);
}

} // namespace
} // namespace kelvane
