#include "Foundation/BinaryPropertyList.h"
#include "Tests/Tools/KelvanectlFixture.h"

#include <nlohmann/json.hpp>

namespace kelvane::tests {
namespace {

using Json = nlohmann::ordered_json;

TEST_F(Kelvanectl, StatusShowsWhatTheDaemonSays) {
    ASSERT_TRUE(daemon_.start());
    const ChildProgram::Result result = run({"status"});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, "Connection      connected to " + socket_ +
                                 "\n"
                                 "Mode            Enabled\n"
                                 "Service state   8 (Idle)\n"
                                 "Backed up       1 file, 6442450944 bytes (6.00 GB)\n"
                                 "Pending         2 files, 1000 bytes\n"
                                 "Backing up      /home/anna/a\\x1b[31m\\x0ab\n"
                                 "Priority        normal\n"
                                 "Account         anna@example.net\n"
                                 "Computer        4711\n"
                                 "Server          backup.example.net\n"
                                 "Quota           limited to 2048 MB\n");
    EXPECT_EQ(result.status, 0);

    const Json json = Json::parse(run({"--json", "status"}).output);
    EXPECT_EQ(json["mode"], "enabled");
    EXPECT_EQ(json["connected"], true);
    EXPECT_EQ(json["backedupFileSize"], 6442450944U);
    EXPECT_EQ(json["currentBackupFile"], "/home/anna/a\x1b[31m\nb");
}

TEST_F(Kelvanectl, StatusKnowsTheModes) {
    ASSERT_TRUE(daemon_.start());
    struct Case {
        std::uint32_t pausedMinutes;
        bool recover;
        std::string mode;
    };
    for (const Case& each :
         {Case{0, true, "Recover"}, Case{90, false, "Paused (90 minutes left)"}, Case{1, true, "Paused"}}) {
        daemon_.answer("pausedMinutes", each.pausedMinutes);
        daemon_.setState("recoverMode", each.recover);
        EXPECT_NE(run({"status"}).output.find("\nMode            " + each.mode), std::string::npos);
    }
}

TEST_F(Kelvanectl, StatusOfADaemonThatSaysNothingInventsNothing) {
    daemon_.changeWorld([](DaemonWorld& world) { world = {}; });
    ASSERT_TRUE(daemon_.start());
    const std::string output = run({"status"}).output;
    for (const char* row :
         {"Backed up       not known\n", "Pending         not known\n", "Account         not known\n"})
        EXPECT_NE(output.find(row), std::string::npos) << output;
    EXPECT_TRUE(Json::parse(run({"status", "--json"}).output)["pendingFileCount"].is_null());
}

TEST_F(Kelvanectl, StatusWithoutADaemonShowsWhatWasKeptAndSaysSo) {
    ASSERT_TRUE(daemon_.start());
    ASSERT_EQ(run({"status"}).status, 0);
    daemon_.stop();
    const ChildProgram::Result result = run({"--timeout", "0.2", "status"});
    expectFailure(result, 1, "cannot be reached within 0.2 s");
    EXPECT_EQ(result.output, "Connection      not connected to " + socket_ +
                                 "\n"
                                 "Mode            Disabled\n"
                                 "\n"
                                 "These values are old: they were kept when the daemon was last reached.\n"
                                 "Account         anna@example.net\n"
                                 "Computer        4711\n"
                                 "Server          backup.example.net\n"
                                 "Quota           limited\n");
    const Json json = Json::parse(run({"--timeout=0.2", "--json", "status"}).output);
    EXPECT_EQ(json["valuesAreOld"], true);
    EXPECT_EQ(json["userEmail"], "anna@example.net");
    EXPECT_FALSE(json.contains("serviceState"));
}

TEST_F(Kelvanectl, ADaemonThatDoesNotAnswerHoldsNobodyUp) {
    ASSERT_TRUE(daemon_.start());
    ASSERT_EQ(run({"status"}).status, 0);
    const FakeDaemon::Hold hold = daemon_.hold("");
    for (const Words& words :
         {Words{"status"}, Words{"call", "serviceState"}, Words{"call", "setPausedMinutes:", "1"}}) {
        Words all{"--timeout", "0.3"};
        all.insert(all.end(), words.begin(), words.end());
        expectFailure(run(all), 1, "did not answer within 0.3 s");
    }
    // What was kept is not replaced by answers that never came.
    EXPECT_NE(run({"--timeout", "0.3", "status"}).output.find("anna@example.net"), std::string::npos);
}

TEST_F(Kelvanectl, ALinkThatIsLostIsNotTakenForAnAnswer) {
    ASSERT_TRUE(daemon_.start());
    for (const char* selector : {"serviceState", "userEmail", "daemonState"}) {
        daemon_.answerWith(selector, [this](const Array&) {
            EXPECT_TRUE(daemon_.waitForPanes(1)); // a call may come before its pane is counted
            daemon_.closePanes();
            return Value();
        });
        SCOPED_TRACE(selector);
        expectFailure(run({"--timeout", "10", "call", selector}), 1, "was lost");
        daemon_.answerAsUsual(selector);
    }
}

TEST_F(Kelvanectl, CallCarriesArgumentsAndResultsExactly) {
    ASSERT_TRUE(daemon_.start());
    daemon_.answer("longlongForState:", std::numeric_limits<std::uint64_t>::max());
    daemon_.answer("longForState:", std::numeric_limits<std::int64_t>::min());
    daemon_.answer("mappedUserAsString:", Dictionary{{"when", Date{757479845}}, {"what", Data{1}}});
    struct Case {
        Words words;
        Array arguments;
        std::string output;
    };
    const Case cases[] = {
        {{"serviceState"}, {}, "8\n"},
        {{"pausedMinutes"}, {}, "0\n"},
        {{"automaticMode"}, {}, "true\n"},
        {{"recoverMode"}, {}, "false\n"},
        {{"marketingMessage"}, {}, "null\n"},
        {{"longlongForState:", "1"}, {1}, "18446744073709551615\n"},
        {{"longForState:", "1"}, {1}, "-9223372036854775808\n"},
        {{"mappedUserAsString:", "501"},
         {501},
         "{\n  \"when\": {\n    \"$date\": \"2025-01-02T03:04:05Z\"\n  },\n  \"what\": {\n    \"$data\": "
         "\"AQ==\"\n  }\n}\n"},
        {{"setPausedMinutes:", "4294967295"}, {4294967295U}, ""},
        {{"setAutomaticMode:", "false"}, {0}, ""},
        {{"setDelayShutdown:", "-1"}, {-1}, ""},
        {{"setFileTypeToggle:toggle:", "--json", "3"}, {"--json", 3}, ""},
        {{"addFilesToBackup:", R"(["/a", 7, 1.0, {"$date": "2025-01-02T03:04:05Z"}])"},
         {Value(Array{"/a", 7, 1.0, Date{757479845}})},
         ""},
        {{"addFileToBackup:", "2025-01-02"}, {"2025-01-02"}, ""},
        {{"addFileToBackup:", "--"}, {"--"}, ""},
        {{"addFileToBackup:", "/home/anna and \"bob\""}, {"/home/anna and \"bob\""}, ""},
        {{"addFileToBackup:", R"("007")"}, {"007"}, ""},
        {{"addFileToBackup:", ""}, {""}, ""},
    };
    for (const Case& each : cases) {
        daemon_.forgetCalls();
        Words words = each.words;
        words.insert(words.begin(), "call");
        const ChildProgram::Result result = run(words);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.output, each.output);
        // When it has ended, the daemon has taken it.
        ASSERT_EQ(daemon_.callCount(each.words[0]), 1U) << each.words[0];
        EXPECT_EQ(daemon_.calls().front(), (ReceivedCall{each.words[0], each.arguments}));
    }
}

TEST_F(Kelvanectl, TerminateNeedsNoAnswer) {
    daemon_.answerWith("terminate", [this](const Array&) {
        daemon_.closePanes();
        return Value();
    });
    ASSERT_TRUE(daemon_.start());
    const ChildProgram::Result result = run({"call", "terminate"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(daemon_.waitForCalls("terminate"));
}

TEST_F(Kelvanectl, WrongUsageIsRefusedInALineBeforeAnythingIsSent) {
    ASSERT_TRUE(daemon_.start());
    struct Case {
        Words words;
        std::string reason;
    };
    const Case cases[] = {
        {{}, "COMMAND is required"},
        {{"sing"}, "there is no command \"sing\""},
        {{"--loud", "status"}, "--loud"},
        {{"status", "now"}, "now"},
        {{"--timeout", "0", "status"}, "\"0\" is no number of seconds"},
        {{"--timeout", "nan", "status"}, "no number of seconds"},
        {{"status", "--timeout"}, "--timeout"},
        {{"--daemon", std::string(104, 'x'), "status"}, "at most 103 bytes"},
        {{"call"}, "SELECTOR is required"},
        {{"call", "setPausedMinutes"}, "no method \"setPausedMinutes\""},
        {{"call", "setPausedMinutes:"}, "takes 1 arguments, not 0"},
        {{"call", "serviceState", "1"}, "takes 0 arguments, not 1"},
        {{"call", "setPausedMinutes:", "-1"}, "argument 1: \"-1\" is no whole number from 0 to 4294967295"},
        {{"call", "setPausedMinutes:", "4294967296"}, "no whole number"},
        {{"call", "setPausedMinutes:", "1.5"}, "no whole number"},
        {{"call", "setAutomaticMode:", "128"}, "from -128 to 127"},
        {{"call", "addFileToBackup:", "null"}, "null has no place"},
        {{"call", "addFilesToBackup:", "[1,"}, "argument 1: line 1, column 3"},
        {{"call", "addFileToBackup:", "18446744073709551616"}, "does not fit 64 bits"},
        {{"call", "addFileToBackup:", "/\xff"}, "not UTF-8"},
        {{"decode", "a", "b"}, "b"},
    };
    for (const Case& each : cases)
        expectFailure(run(each.words), 2, each.reason);
    EXPECT_TRUE(daemon_.calls().empty());
    for (const Words& words :
         {Words{"--help"}, Words{"status", "-h"}, Words{"call", "--help"}, Words{"decode", "x", "-h"}}) {
        const ChildProgram::Result help = run(words);
        EXPECT_EQ(help.status, 0);
        EXPECT_NE(help.output.find("Usage: kelvanectl"), std::string::npos);
    }
}

TEST_F(Kelvanectl, FindsTheDaemonByOptionThenEnvironmentThenDefault) {
    ASSERT_TRUE(daemon_.start());
    EXPECT_EQ(run({"call", "serviceState"}).status, 0);
    environment_[0] = "KELVANE_DAEMON=" + (folder_ / "nowhere");
    EXPECT_EQ(run({"--timeout", "0.1", "call", "serviceState"}).status, 1);
    EXPECT_EQ(run({"call", "--daemon", socket_, "serviceState"}).status, 0);
    environment_[0] = "KELVANE_DAEMON=";
    std::filesystem::create_directory(folder_ / "kelvane");
    FakeDaemon usual(folder_ / "kelvane/daemon.sock", world());
    ASSERT_TRUE(usual.start());
    EXPECT_EQ(run({"call", "serviceState"}).status, 0);
    EXPECT_EQ(usual.callCount("serviceState"), 1U);
}

TEST_F(Kelvanectl, DecodeAndEncodeConvertFilesAndStreams) {
    const std::string json =
        "{\"b\":[1,1.0,{\"$float\":0.1}],\"a\":{\"$date\":-0.1},\"\xc3\xa4\":\"\xf0\x9f\x98\x80\"}\n";
    const ChildProgram::Result list = run({"encode"}, json);
    EXPECT_EQ(list.status, 0) << list.errors;
    EXPECT_TRUE(readBinaryPropertyList(Data(list.output.begin(), list.output.end())).succeeded());
    const std::string file = folder_.write("list", list.output);
    EXPECT_EQ(run({"--json", "decode", file}).output, json);
    EXPECT_EQ(run({"decode", "--json", "-"}, list.output).output, json);
    EXPECT_EQ(Json::parse(run({"decode"}, list.output).output), Json::parse(json));

    expectFailure(run({"decode"}, list.output.substr(1)), 2, "standard input: ");
    expectFailure(run({"encode", folder_.write("bad.json", "[1,\n2")}), 2, "bad.json: line 2, column 1: ");
    expectFailure(run({"decode", folder_ / "nothing"}), 2, "nothing: No such file");
    expectFailure(run({"encode", folder_.path()}), 2, "Is a directory");
}

TEST_F(Kelvanectl, OutputThatIsNotTakenIsAFailure) {
    ASSERT_TRUE(daemon_.start());
    for (const Words& words :
         {Words{"status"}, Words{"call", "serviceState"}, Words{"--help"}, Words{"watch"}})
        expectFailure(start(words, {}, "/dev/full")->finish(), 2, "cannot write to standard output");
}

} // namespace
} // namespace kelvane::tests
