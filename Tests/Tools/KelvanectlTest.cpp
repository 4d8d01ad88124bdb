#include "Tests/Tools/KelvanectlFixture.h"

#include <nlohmann/json.hpp>

namespace kelvane::tests {
namespace {

using Json = nlohmann::ordered_json;

TEST_F(Kelvanectl, StatusShowsWhatTheDaemonSaysAndInventsNothing) {
    EXPECT_EQ(run({"status"}).output, "Mode            Enabled\n"
                                      "State           Idle\n"
                                      "Backed up       1 file, 6442450944 bytes (6.00 GB)\n"
                                      "Pending         2 files\n"
                                      "Backing up      /a\\x1b[31m\\x0ab\n"
                                      "Account         anna@example.net\n"
                                      "Computer        4711\n"
                                      "Quota           limited to 2048 MB\n"
                                      "Daemon          " +
                                          socket_ + '\n');
    const Json json = Json::parse(run({"--json", "status"}).output);
    EXPECT_EQ(json["mode"], "enabled");
    EXPECT_EQ(json["currentBackupFile"], "/a\x1b[31m\nb");
    EXPECT_TRUE(json["pendingFileSize"].is_null());
    daemon_.answer("pausedMinutes", 90U);
    EXPECT_TRUE(run({"status"}).output.starts_with("Mode            Paused (90 minutes left)\n"));
    daemon_.setState("hasUnreadFiles", true);
    daemon_.setState("damagedFileCount", 2U);
    daemon_.setState("isQuotaLimited", false);
    daemon_.setState("currentRestoreJob", 3U);
    daemon_.setState("extensions", Array{"alerts"});
    EXPECT_TRUE(
        run({"status"})
            .output.ends_with("\nRestoring       job 3\nUnreadable      some files could not be read and are "
                              "not backed up\n"
                              "Damaged         2 files in the backup\nAlerts          none\n"
                              "Account         anna@example.net\nComputer        4711\nDaemon          " +
                              socket_ + '\n'));
}

TEST_F(Kelvanectl, StatusShowsTheScheduleOfADaemonThatTellsIt) {
    environment_.emplace_back("LC_ALL=C");
    daemon_.setState("extensions", Array{"schedule"});
    const auto rows = [&] {
        const std::string text = run({"status"}).output;
        std::string shown;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            for (const char* const label : {"Mode", "Last", "Next", "Dest", "Speed", "Verif"})
                shown += line.starts_with(label) ? line + '\n' : "";
        return shown;
    };
    EXPECT_EQ(rows(), "Mode            Enabled\nLast backup     none\nVerified        never\n");
    const Date date = plist(R"({"$date": "2025-01-02T03:04:05Z"})").dateValue();
    daemon_.setState("lastBackupDate", date);
    daemon_.setState("waitingFor", "Backup is\x1b paused.");
    daemon_.setState("pausedUntil", date);
    daemon_.setState("destination", "Disk");
    daemon_.setState("lastVerifiedDate", date);
    daemon_.setState("lastVerification", "No damage");
    daemon_.answer("pausedMinutes", 90U);
    EXPECT_EQ(rows(), "Mode            Paused until 2025-01-02 03:04\nLast backup     2025-01-02 03:04\n"
                      "Next backup     Backup is\\x1b paused.\nDestination     Disk\n"
                      "Verified        2025-01-02 03:04: No damage\n");
    daemon_.setState("nextBackupDate", date);
    daemon_.setState("bytesPerSecond", 3U << 20U);
    const std::pair<std::uint64_t, std::string> times[] = {
        {59, "less than a minute"},  {89, "about 1 minute"},  {90, "about 2 minutes"},
        {5999, "about 100 minutes"}, {6000, "about 2 hours"}, {10799, "about 3 hours"}};
    for (const auto& [seconds, text] : times) {
        daemon_.setState("secondsLeft", seconds);
        EXPECT_NE(rows().find("Disk\nSpeed           3.00 MB/s, " + text + " left\n"), std::string::npos)
            << rows();
    }
    const Json json = Json::parse(run({"--json", "status"}).output);
    EXPECT_EQ(json["nextBackupDate"], "2025-01-02T03:04:05Z");
    EXPECT_EQ(json["bytesPerSecond"], 3U << 20U);
    EXPECT_EQ(json["waitingFor"], "Backup is\x1b paused.");
}

TEST_F(Kelvanectl, WhatWasKeptIsShownWithoutADaemonAndNotReplacedByAnswersThatNeverCame) {
    ASSERT_EQ(run({"status"}).status, 0);
    {
        const FakeDaemon::Hold hold = daemon_.hold("");
        for (const Words& words :
             {Words{"status"}, {"call", "serviceState"}, {"call", "setPausedMinutes:", "1"}}) {
            Words all{"--timeout", "0.3"};
            all.insert(all.end(), words.begin(), words.end());
            expectFailure(run(all), 1, "did not answer within 0.3 s");
        }
        // Even on a busy machine.
        expectFailure(run({"--timeout", "0.1", "backup", "now", "--wait"}), 1, "did not answer within 1 s");
    }
    daemon_.stop();
    const ChildProgram::Result result = run({"--timeout", "0.2", "status"});
    expectFailure(result, 1, "cannot be reached within 0.2 s");
    EXPECT_NE(result.errors.find("start it with \"kelvane-local-daemon --socket " + socket_),
              std::string::npos)
        << result.errors;
    EXPECT_TRUE(result.output.starts_with("As of the last connection to the daemon:\n"
                                          "Account         anna@example.net\n"))
        << result.output;
    EXPECT_EQ(Json::parse(run({"--timeout=0.2", "--json", "status"}).output)["valuesAreOld"], true);
}

// A call whose link is lost also returns 0 or nothing; only `terminate` may succeed like that.
TEST_F(Kelvanectl, ALinkThatIsLostIsNotTakenForAnAnswer) {
    for (const char* selector : {"serviceState", "daemonState", "terminate"}) {
        daemon_.breakLinkAt(selector);
        const ChildProgram::Result result = run({"--timeout", "10", "call", selector});
        if (std::string_view(selector) == "terminate")
            EXPECT_EQ(result.status, 0) << result.errors;
        else
            expectFailure(result, 1, "was lost");
        EXPECT_TRUE(daemon_.waitForCalls(selector));
    }
}

TEST_F(Kelvanectl, CallCarriesArgumentsAndResultsExactly) {
    daemon_.answer("longlongForState:", std::numeric_limits<std::uint64_t>::max());
    const struct {
        Words words;
        Array arguments;
        std::string output;
    } cases[] = {{{"serviceState"}, {}, "8\n"},
                 {{"automaticMode"}, {}, "true\n"},
                 {{"marketingMessage"}, {}, "null\n"},
                 {{"longlongForState:", "1"}, {1}, "18446744073709551615\n"},
                 {{"mappedUserAsString:", "\x7f\xc2\x9b\xd8\x9c"},
                  {"\x7f\xc2\x9b\xd8\x9c"},
                  "\"\\u007f\\u009b\\u061c\"\n"},
                 {{"setPausedMinutes:", "4294967295"}, {4294967295U}, ""},
                 {{"setAutomaticMode:", "false"}, {0}, ""},
                 {{"setAutomaticMode:", "-7"}, {-7}, ""},
                 {{"setFileTypeToggle:toggle:", "--json", "3"}, {"--json", 3}, ""},
                 {{"addFilesToBackup:", R"(["/a", 7, 1.0, {"$date": "2025-01-02T03:04:05Z"}])"},
                  {Value(Array{"/a", 7, 1.0, Date{757479845}})},
                  ""},
                 {{"addFileToBackup:", "2025-01-02"}, {"2025-01-02"}, ""},
                 {{"addFileToBackup:", R"("007")"}, {"007"}, ""}};
    for (const auto& [words, arguments, output] : cases) {
        daemon_.forgetCalls();
        Words all = words;
        all.insert(all.begin(), "call");
        const ChildProgram::Result result = run(all);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.output, output);
        // When the command has ended, the daemon has received the call.
        ASSERT_EQ(daemon_.callCount(words[0]), 1U) << words[0];
        EXPECT_EQ(daemon_.calls().front(), (ReceivedCall{words[0], arguments}));
    }
}

TEST_F(Kelvanectl, WrongUsageIsRefusedInALineBeforeAnythingIsSent) {
    const std::pair<Words, std::string> cases[] = {
        {{}, "COMMAND is required"},
        {{"sing"}, "there is no command \"sing\""},
        {{"--timeout", "0", "status"}, "\"0\" is not a number of seconds"},
        {{"--daemon", std::string(104, 'x'), "status"}, "104 bytes, limit 103"},
        {{"call", "setPausedMinutes:"}, "takes 1 argument, not 0"},
        {{"call", "setPausedMinutes:", "-1"},
         "argument 1: \"-1\" is not a whole number from 0 to 4294967295"},
        {{"call", "setAutomaticMode:", "128"}, "a whole number from -128 to 127, nor true or false"},
        {{"call", "addFilesToBackup:", "[1,"}, "argument 1: line 1, column 3"},
        {{"call", "addFileToBackup:", "\xff"}, "argument 1: the text is not UTF-8"},
        {{"call"}, "SELECTOR is required"},
        {{"call", "sing"}, "the daemon has no method \"sing\""},
        {{"--sing"}, "--sing"},
        {{"--daemon", "", "status"}, "--daemon: the path is empty"},
        {{"alert", "gone"}, "ACTION is required"},
        {{"info", ""}, "PATH: the path is empty"},
        {{"exclude", "add", "/home", "/.."}, "a whole volume cannot be excluded"},
        {{"include", "add"}, "PATH is required"},
        {{"watch", "nonsense"}, "nonsense (see kelvanectl watch --help)"},
        {{"exclude", "sing"}, "choose one of list, add, remove"},
        {{"exclude", "--json"}, "one of list, add, remove"},
        {{"mode", "enabled", "5"}, "5"},
        {{"mode", "paused", "0h"}, "DURATION"},
        {{"mode", "paused", "2h", "--until", "18:00"}, "DURATION excludes --until"},
        {{"mode", "paused", "--until", "25:00"}, "is not a time"},
        {{"mode", "paused", "--until", "2001-01-01 00:00"}, "has passed"},
        {{"decode", folder_ / "nothing"}, "nothing: No such file"},
        {{"decode", folder_.path()}, ": Is a directory"},
        {{"decode"}, "standard input: "},
        {{"encode", "-"}, "standard input: it is empty"}};
    for (const auto& [words, reason] : cases)
        expectFailure(run(words), 2, reason);
    EXPECT_TRUE(daemon_.calls().empty());
    expectFailure(run({"call", "verify"}), 2, "this daemon has no method \"verify\"");
    for (const char* const command : {"status", "watch"})
        expectFailure(start({command}, {}, "/dev/full")->finish(), 2, "cannot write to standard output: No");
}

TEST_F(Kelvanectl, ConvertsBetweenJsonAndABinaryPropertyList) {
    const std::string json = R"({"a":[1,{"$date":"2025-01-02T03:04:05Z"}]})"
                             "\n";
    const std::string bytes = run({"encode"}, json).output;
    EXPECT_TRUE(bytes.starts_with("bplist00"));
    EXPECT_EQ(run({"--json", "decode", "-"}, bytes).output, json);
    const std::string large = '"' + std::string(200'000, 'x') + "\"\n"; // takes several reads
    const std::string file = folder_.write("list", run({"encode", folder_.write("json", large)}).output);
    EXPECT_EQ(run({"decode", file}).output, large);
}

TEST_F(Kelvanectl, EachCommandHasAHelpPageOfItsOwn) {
    EXPECT_EQ(run({"--version"}).output, "kelvanectl " KELVANE_VERSION "\n");
    const std::pair<Words, std::string> usages[] = {
        {{}, "kelvanectl [OPTION...] COMMAND"},
        {{"exclude"}, "kelvanectl exclude [OPTION...] COMMAND"},
        {{"exclude", "add"}, "kelvanectl exclude add [OPTION...] PATH..."},
        {{"call"}, "kelvanectl call [OPTION...] SELECTOR [ARGUMENT...]"}};
    for (const auto& [words, usage] : usages) {
        Words asked = words;
        asked.insert(asked.begin(), "help");
        const std::string page = run(asked).output;
        EXPECT_NE(page.find("Usage: " + usage + '\n'), std::string::npos) << page;
        asked = words;
        asked.emplace_back("--help");
        EXPECT_EQ(run(asked).output, page);
    }
    expectFailure(run({"help", "sing"}), 2, "no command \"sing\"");
    EXPECT_TRUE(daemon_.calls().empty());
}

TEST_F(Kelvanectl, FindsTheDaemonByOptionThenEnvironmentThenDefault) {
    environment_[0] = "KELVANE_DAEMON=" + (folder_ / "nowhere");
    EXPECT_EQ(run({"--timeout", "0.1", "call", "serviceState"}).status, 1);
    EXPECT_EQ(run({"call", "--daemon", socket_, "serviceState"}).status, 0);
    expectFailure(
        run({"--daemon", KELVANECTL + std::string("/x"), "--timeout", "0.1", "call", "serviceState"}), 1,
        "Not a directory");
    environment_[0] = "KELVANE_DAEMON=";
    expectFailure(run({"--timeout", "0.1", "call", "serviceState"}), 1, "kelvane-local-daemon\"");
    std::filesystem::create_directory(folder_ / "kelvane");
    FakeDaemon usual(folder_ / "kelvane/daemon.sock");
    ASSERT_TRUE(usual.start());
    EXPECT_EQ(run({"call", "serviceState"}).status, 0);
}

} // namespace
} // namespace kelvane::tests
