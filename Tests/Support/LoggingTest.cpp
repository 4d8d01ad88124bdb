#include "Support/Logging.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

namespace kelvane {
namespace {

using Lines = std::vector<std::string>;

LogSinkToken collectInto(Lines& lines) {
    return setLogSink([&lines](const LogEntry& entry) { lines.push_back(entry.text); });
}

// Returns the output of a process that starts with the marker at `path`. Called in a child process, since
// logging stays enabled.
Lines writtenWithMarker(const std::string& path) {
    setLogLevel(LogLevel::Notice); // as in a new process, whatever ran before
    Lines lines;
    const LogSinkToken sink = collectInto(lines);
    KelvaneCLog("too early %d", 1);
    KelvaneLogStart(path);
    KelvaneLogStart(path + ".absent");
    KelvaneCLog("%@ %u", Value(Array{1}), 7U);
    KelvaneLog(std::string("%s"), std::string("text"));
    logNotice("always");
    return lines;
}

TEST(LoggingDeathTest, IsOnWhenTheMarkerStandsThereAtTheStart) {
    const tests::TemporaryFolder folder;
    const Lines on{"(1) 7", "text", "always"};
    const std::pair<std::string, Lines> cases[] = {
        {folder / "absent", {"always"}}, {folder.write("file", ""), on}, {folder.path(), on}};
    for (const auto& [path, expected] : cases)
        EXPECT_EXIT(std::_Exit(writtenWithMarker(path) == expected ? 0 : 1), testing::ExitedWithCode(0), "")
            << path;
}

TEST(LoggingDeathTest, GoesToStandardErrorWhenThereIsNoSystemLog) {
    EXPECT_STREQ(logMarkerPath, "/tmp/kelvane_logging");
    const tests::EnvironmentVariable zone("TZ", "UTC");
    ::tzset();
    const std::pair<LogLevel, const char*> cases[] = {{LogLevel::Error, "] error: text"},
                                                      {LogLevel::Warning, "] warning: text"},
                                                      {LogLevel::Notice, "] text"},
                                                      {LogLevel::Debug, "] text"}};
    for (const auto& [level, end] : cases) {
        const LogEntry entry{std::chrono::system_clock::time_point(std::chrono::milliseconds(1735787045678)),
                             level, "text"};
        EXPECT_TRUE(entry.line().starts_with("2025-01-02 03:04:05.678 ")) << entry.line();
        EXPECT_TRUE(entry.line().ends_with(end)) << entry.line();
    }
    const auto write = [] {
        logNotice("written");
        std::_Exit(0);
    };
    EXPECT_EXIT(write(), testing::ExitedWithCode(0),
                std::filesystem::exists("/dev/log") ? "" : "] written\n");
}

TEST(LoggingDeathTest, OutlivesTheReaderOfStandardErrorAndLeavesABrokenPipeThatWasPendingBefore) {
    const auto write = [](bool isPending) {
        std::array<int, 2> ends{};
        sigset_t signals;
        ::sigemptyset(&signals);
        ::sigaddset(&signals, SIGPIPE);
        if (::pipe(ends.data()) != 0 || ::dup2(ends[1], STDERR_FILENO) < 0)
            std::_Exit(2);
        ::close(ends[0]);
        if (isPending) {
            ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
            ::raise(SIGPIPE);
        }
        logNotice("nobody reads this");
        ::sigpending(&signals);
        std::_Exit(::sigismember(&signals, SIGPIPE));
    };
    EXPECT_EXIT(write(false), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(write(true), testing::ExitedWithCode(1), "");
}

// The process's own level and the more severe ones.
TEST(Logging, WritesWhatIsSevereEnough) {
    const std::pair<LogLevel, Lines> cases[] = {
        {LogLevel::Error, {"3 error"}},
        {LogLevel::Warning, {"3 error", "4 warning"}},
        {LogLevel::Notice, {"3 error", "4 warning", "5 notice"}},
        {LogLevel::Debug, {"3 error", "4 warning", "5 notice", "7 debug", "3 failure"}}};
    for (const auto& [level, expected] : cases) {
        Lines lines;
        const LogSinkToken sink = setLogSink([&lines](const LogEntry& entry) {
            lines.push_back(std::to_string(static_cast<int>(entry.level)) + ' ' + entry.text);
        });
        setLogLevel(level);
        logError("error");
        logWarning("warning");
        logNotice("%s", "notice");
        KelvaneCLog("debug");
        KelvaneCLogError("failure");
        EXPECT_EQ(lines, expected);
    }
    setLogLevel(LogLevel::Notice);
}

TEST(Logging, MakesOneBoundedLineOfWhateverIsWritten) {
    const std::string longText(longestLogEntry - 1, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"a\nb\r\tc", "a\\nb\\r\\tc"},
        {std::string("\x1b[2J\x7f\0!", 7), "\\x1b[2J\\x7f\\x00!"},
        {"100 % of C:\\n, \xC3\xA9", "100 % of C:\\n, \xC3\xA9"},
        {"\xC2\x9B[m \x9B[m \xE2\x82 \xE2\x82\xAC", "\\xc2\\x9b[m \\x9b[m \\xe2\\x82 \xE2\x82\xAC"},
        {longText + "1", longText + "1"},
        {longText + "123", longText + "1 [2 more bytes]"},
        {longText + "\xC3\xA9+", longText + "\xC3\xA9 [1 more bytes]"}};
    Lines lines;
    const LogSinkToken sink = collectInto(lines);
    for (const auto& [text, expected] : cases) {
        logNotice("%@", text);
        EXPECT_EQ(lines.back(), expected);
    }
    logNotice("%@", std::string(1 << 20, '\x80'));
    EXPECT_LE(lines.back().size(), longestLogEntry + 64);
}

} // namespace
} // namespace kelvane
