#include "Platform/Processes/ChildProcess.h"

#include "Platform/Processes/DetachedProgram.h"
#include "Tests/Harness/ReportingScript.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using End = ChildOutcome::End;
using Action = ChildTick::Action;

ChildCommand shell(const std::string& script) {
    return {.arguments = {"sh", "-c", script}};
}

ChildOutcome run(const std::string& script, const ChildSupervision& supervision = {},
                 const StopSignal& stop = StopSignal()) {
    return runChild(shell(script), supervision, stop);
}

TEST(ChildProcess, TakesInputAndHandsOverWhatItSaysLineByLine) {
    std::vector<std::string> lines;
    ChildCommand command = shell("cat; echo $NAME; sleep 0 | printf 'no end'; echo bad >&2; exit 7");
    command.environment = {"NAME=value"};
    const ChildOutcome outcome = runChild(command,
                                          {.input = std::string(1U << 18U, 'x') + "\nsecond\n",
                                           .onLine =
                                               [&lines](std::string_view line) {
                                                   lines.emplace_back(line);
                                                   return true;
                                               }},
                                          StopSignal());
    EXPECT_EQ(outcome.end, End::Exited);
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.errors, "bad");
    EXPECT_EQ(lines, (std::vector<std::string>{std::string(1U << 18U, 'x'), "second", "value", "no end"}));
}

TEST(ChildProcess, TellsThatALineWasTooLong) {
    for (const std::size_t longest : {5U, 6U}) {
        std::size_t lines = 0;
        const auto onLine = [&lines](std::string_view) { return ++lines > 0; };
        const ChildOutcome outcome =
            run("echo 123456; echo short", {.onLine = onLine, .longestLine = longest});
        EXPECT_EQ(outcome.hasLostLine, longest == 5);
        EXPECT_EQ(outcome.succeeded(), longest == 6);
        EXPECT_EQ(lines, longest - 4);
    }
}

// A child that writes continuously never leaves the pipe empty.
TEST(ChildProcess, StopsOneThatNeverFallsSilent) {
    StopSignal stop;
    std::size_t lines = 0;
    const auto onLine = [&](std::string_view) {
        if (++lines == 100'000)
            stop.set();
        return true;
    };
    EXPECT_EQ(runChild({.arguments = {"yes"}}, {.onLine = onLine}, stop).end, End::Stopped);
    int ticks = 0;
    const auto onTick = [&ticks](pid_t) { return ChildTick{++ticks < 3 ? Action::Continue : Action::Stop}; };
    EXPECT_EQ(runChild({.arguments = {"yes"}}, {.tickInterval = 10ms, .onTick = onTick}, StopSignal()).end,
              End::Stopped);
    EXPECT_GE(ticks, 3);
}

TEST(ChildProcess, SaysHowOneEndsThatDoesNotRunToItsEnd) {
    StopSignal stopped;
    stopped.set();
    const std::string deaf = "trap '' INT; echo; while true; do sleep 1; done";
    const tests::TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    const auto silence = [](pid_t) { return ChildTick{Action::Kill, "the share is silent"}; };
    const ChildOutcome silent = run(deaf, {.tickInterval = 50ms, .onTick = silence});
    EXPECT_EQ(silent.end, End::Stuck);
    EXPECT_EQ(silent.errors, "the share is silent");
    const auto findPipe = [](pid_t id) {
        return isOpeningPipe(id) ? ChildTick{Action::Kill, "it opens a pipe"} : ChildTick();
    };
    EXPECT_EQ(run("read line < '" + folder / "pipe" + "'", {.tickInterval = 50ms, .onTick = findPipe}).errors,
              "it opens a pipe");
    EXPECT_EQ(run("trap 'exit 5' INT; while true; do sleep 0.01; done", {}, stopped).end, End::Stopped);
    EXPECT_EQ(run(deaf, {.gracePeriod = 50ms}, stopped).end, End::Stopped);
    EXPECT_EQ(run("exit 0", {}).end, End::Exited);
    const auto noProgress = [](std::string_view) { return false; };
    EXPECT_EQ(run("while true; do echo; sleep 0.01; done", {.onLine = noProgress, .stallTimeout = 50ms}).end,
              End::Stuck);
    const auto isTrouble = [](std::string_view line) { return line == "trouble"; };
    EXPECT_EQ(run("echo trouble >&2; while true; do sleep 0.01; done",
                  {.stallTimeout = 1h, .stallTimeoutInTrouble = 50ms, .isTrouble = isTrouble})
                  .end,
              End::Stuck);
    EXPECT_EQ(run("kill -9 $$").end, End::Crashed);
    const ChildOutcome missing = runChild({.arguments = {"/no/such/program"}}, {}, StopSignal());
    EXPECT_EQ(missing.end, End::NotStarted);
    EXPECT_EQ(missing.errors, "/no/such/program: No such file or directory");
    // With SIGCHLD ignored the exit status is lost, which must not count as success.
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_NE(run("exit 0").end, End::Exited);
    std::signal(SIGCHLD, before);
    // Does not wait for a grandchild that keeps the pipes open.
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(run("sleep 30 & exit 0").succeeded());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST(ChildProcess, IsReapedByALaterStartWhenItWasLeftBehind) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t left = ChildProcess::start({.arguments = {"cat"}}, {.input = ends[0]})->id();
    for (const int end : ends)
        ::close(end); // cat ends
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(left), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_TRUE(run("true").succeeded());
    EXPECT_EQ(::waitpid(left, nullptr, WNOHANG), -1);
}

TEST(DetachedProgram, IsFreeOfItsStarterAndSaysWhenItCannotStart) {
    const tests::ReportingScript script("cut -d' ' -f1,6 /proc/$$/stat");
    EXPECT_EQ(startDetached({script.path()}), "");
    std::istringstream report(script.report());
    pid_t self = 0;
    pid_t session = 0;
    ASSERT_TRUE(report >> self >> session);
    EXPECT_NE(session, ::getsid(0)) << "a terminal that closes would end it";
    EXPECT_NE(session, self) << "it could take a terminal";
    EXPECT_EQ(startDetached({"/no/such/program"}), "/no/such/program: No such file or directory");
}

// Runs in a separate process, which ends with the waiting thread.
TEST(ChildProcess, IsInterruptedWhenTheThreadDiesThatWaitsForIt) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const std::string told = "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(ends[1]);
    const pid_t parent = ::fork();
    if (parent == 0) {
        static_cast<void>(
            run("trap 'echo i >" + told + "; exit' INT; kill -9 $PPID; while true; do sleep 0.01; done"));
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
