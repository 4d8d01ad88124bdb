#include "Support/Logging.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>

namespace kelvane {
namespace {

using Lines = std::vector<std::string>;

LogSinkToken collectInto(Lines& lines) {
    return setLogSink([&lines](const LogEntry& entry) { lines.push_back(entry.text); });
}

// What a process writes that starts with the marker at `path`. Logging stays on, so it is called in a child.
Lines writtenWithMarker(const std::string& path) {
    detail::logEnabled = false; // as in a new process, whatever ran before
    Lines lines;
    const LogSinkToken sink = collectInto(lines);
    KelvaneCLog("too early %d", 1);
    KelvaneLogStart(path);
    KelvaneLogStart(path + ".absent");
    KelvaneCLog("%@ %u", Value(Array{1}), 7U);
    KelvaneLog(std::string("%s"), std::string("text"));
    KelvaneSystemLog("always");
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
    const LogEntry entry{std::chrono::system_clock::time_point(std::chrono::milliseconds(1735787045678)),
                         "text"};
    EXPECT_TRUE(entry.line().starts_with("2025-01-02 03:04:05.678 ")) << entry.line();
    EXPECT_TRUE(entry.line().ends_with("] text")) << entry.line();
    const auto write = [] {
        KelvaneSystemLog("written");
        std::_Exit(0);
    };
    EXPECT_EXIT(write(), testing::ExitedWithCode(0),
                std::filesystem::exists("/dev/log") ? "" : "] written\n");
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
        KelvaneSystemLog("%@", text);
        EXPECT_EQ(lines.back(), expected);
    }
    KelvaneSystemLog("%@", std::string(1 << 20, '\x80'));
    EXPECT_LE(lines.back().size(), longestLogEntry + 64);
}

} // namespace
} // namespace kelvane
