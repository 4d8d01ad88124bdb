#include "Common/RestoreStatus.h"
#include "Platform/Files/Volumes.h"
#include "Tests/Tools/KelvanectlFixture.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

namespace kelvane::tests {
namespace {

using Json = nlohmann::ordered_json;

// The commands of kelvanectl that make the daemon do something.
class KelvanectlOrders : public Kelvanectl {
protected:
    static std::string onVolume(const std::string& path) { return Volumes::current().volumePath(path); }
    [[nodiscard]] std::vector<ReceivedCall> orders(std::string_view beginning = "set") const {
        std::vector<ReceivedCall> calls = daemon_.calls();
        std::erase_if(calls, [&](const auto& call) { return !call.selector.starts_with(beginning); });
        return calls;
    }
    [[nodiscard]] std::vector<ReceivedCall> restores() const { return orders("restoreFile:"); }
    void answerJobs(const std::vector<std::uint32_t>& statuses) {
        daemon_.answerWith("getRestoreJobStatus:", [statuses](const Array& arguments) {
            return Value(statuses.at(arguments[0].uint32Value() - 1));
        });
    }
};

TEST_F(KelvanectlOrders, AModeIsSetSoThatNoBackupBeginsOnTheWayThere) {
    const std::pair<Words, std::vector<ReceivedCall>> cases[] = {
        {{"enabled"}, {{"setPausedMinutes:", {0U}}, {"setRecoverMode:", {0}}, {"setEnabled:", {1}}}},
        {{"paused"}, {{"setPausedMinutes:", {1440U}}, {"setEnabled:", {1}}}},
        {{"paused", "61"}, {{"setPausedMinutes:", {61U}}, {"setEnabled:", {1}}}},
        {{"paused", "2h"}, {{"setPausedMinutes:", {120U}}, {"setEnabled:", {1}}}},
        {{"recover"}, {{"setRecoverMode:", {1}}, {"setPausedMinutes:", {0U}}, {"setEnabled:", {1}}}},
        {{"disabled"}, {{"setEnabled:", {0}}}}};
    for (const auto& [words, expected] : cases) {
        daemon_.forgetCalls();
        Words all{"mode"};
        all.insert(all.end(), words.begin(), words.end());
        EXPECT_EQ(run(all).status, 0) << words[0];
        EXPECT_EQ(orders(), expected) << words[0];
    }
    EXPECT_EQ(run({"--json", "mode", "recover"}).output, "{\"mode\":\"recover\"}\n");
    EXPECT_EQ(run({"--json", "mode", "paused", "90"}).output, "{\"mode\":\"paused\",\"pausedMinutes\":90}\n");
    daemon_.setState("serviceState", 12U);
    EXPECT_TRUE(run({"status"}).output.starts_with("Mode            Disabled\n"));
}

// A time of day that has passed means tomorrow.
TEST_F(KelvanectlOrders, APauseLastsUntilTheTimeThatIsNamed) {
    const std::time_t day = 24 * 60 * 60;
    const std::time_t before = std::time(nullptr);
    const std::time_t passed = (before - 60) / 60 * 60;
    const std::time_t latest = 4102444800; // 2100-01-01 in UTC
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M", std::gmtime(&passed));
    for (const auto& [until, end] :
         {std::pair(std::string(text.data()), passed + day), {std::string("2100-01-01 00:00"), latest}}) {
        daemon_.forgetCalls();
        const ChildProgram::Result result = run({"mode", "paused", "--until", until});
        EXPECT_TRUE(result.output.starts_with("Backup is paused until 2")) << result.output;
        const std::uint32_t minutes = orders().front().arguments[0].uint32Value();
        EXPECT_LE(minutes, (end - before + 59) / 60);
        EXPECT_GE(minutes, (end - std::time(nullptr) + 59) / 60);
    }
}

TEST_F(KelvanectlOrders, BackingUpNowEndsAPauseAndWaitsUntilNothingIsNeeded) {
    daemon_.setState("isBackupNeeded", true);
    const auto program = start({"backup", "now", "--wait"});
    ASSERT_TRUE(daemon_.waitForCalls("daemonState", 6)); // it polls more than once
    EXPECT_EQ(orders(), (std::vector<ReceivedCall>{{"setPausedMinutes:", {0U}},
                                                   {"setPriorityBackup:", {onVolume("/")}}}));
    // It keeps its connection: a new one to the daemon is impossible now.
    std::filesystem::rename(socket_, socket_ + ".away");
    daemon_.forgetCalls();
    ASSERT_TRUE(daemon_.waitForCalls("daemonState", 4));
    daemon_.setState("isBackupNeeded", false);
    EXPECT_EQ(program->finish().status, 0);
    std::filesystem::rename(socket_ + ".away", socket_);
    EXPECT_EQ(run({"--json", "backup", "now"}).output, "{\"serviceState\":8,\"isBackupNeeded\":false}\n");
    daemon_.setState("hasUnreadFiles", true);
    expectFailure(run({"backup", "now", "--wait"}), 3, "could not be read");
    daemon_.setState("damagedFileCount", 2U);
    expectFailure(run({"backup", "now", "--wait"}), 3, "2 files in the backup are damaged");
    daemon_.setState("serviceState", 25U);
    expectFailure(run({"backup", "now"}), 3, "nothing is backed up now: Recover mode");
    EXPECT_EQ(run({"backup", "later"}).status, 2);
}

TEST_F(KelvanectlOrders, VerifyingIsRefusedOrStartedOrAwaitedWithItsOutcome) {
    expectFailure(run({"verify"}), 3, "this daemon cannot verify its backup");
    daemon_.setState("extensions", Array{"verify"});
    daemon_.answer("verify", "Not now.");
    expectFailure(run({"verify", "--wait"}), 3, "kelvanectl: Not now.");
    daemon_.answerWith("verify", [this](const Array&) {
        daemon_.setState("verificationProgress", 0.429);
        return Value("");
    });
    EXPECT_EQ(run({"verify"}).output, "");
    EXPECT_NE(run({"status"}).output.find("\nVerified        running, 42 %\n"), std::string::npos);
    const auto program = start({"verify", "--wait"});
    ASSERT_TRUE(daemon_.waitForCalls("verify", 3));
    daemon_.forgetCalls();
    ASSERT_TRUE(daemon_.waitForCalls("daemonState", 4)); // it polls more than once
    const auto end = [this](std::string_view key, const Value& value) {
        daemon_.changeWorld([&](DaemonWorld& world) {
            Dictionary& state = world.state.mutableDictionary();
            state.erase("verificationProgress");
            state.set("lastVerification", "The outcome.");
            state.set(key, value);
        });
    };
    end("lastVerifiedDate", Date{1});
    const ChildProgram::Result result = program->finish();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "The outcome.\n");
    // The daemon ends each of these while it answers.
    for (const auto& [key, value] : {std::pair("lastVerifiedDate", Value(Date{1})), // as before
                                     {"isBackupDamaged", true},
                                     {"damagedFileCount", 2U}}) {
        end("lastVerifiedDate", Date{1});
        daemon_.answerWith("verify", [&, key = key, value = value](const Array&) {
            end("lastVerifiedDate", Date{2});
            end(key, value);
            return Value("");
        });
        const ChildProgram::Result bad = run({"verify", "--wait", "--json"});
        expectFailure(bad, 3, "kelvanectl: The outcome.");
        EXPECT_EQ(Json::parse(bad.output),
                  Json({{"lastVerification", "The outcome."},
                        {"damagedFileCount", key == std::string("damagedFileCount") ? 2 : 0}}));
        end(key, false);
    }
}

TEST_F(KelvanectlOrders, RestoringNamesEachJobAndItsPlace) {
    const ChildProgram::Result result = run({"restore", "/a", "/b\n", "--to", "/tmp/x"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "job 1  waiting  /tmp/x/a\njob 2  waiting  /tmp/x/b\\x0a\n");
    EXPECT_EQ(restores()[0].arguments, (Array{onVolume("/a"), onVolume("/tmp/x/a"), 0U, 50U}));
    daemon_.answer("restoreFile:toPath:version:priority:", 0U);
    expectFailure(run({"restore", "/a"}), 3, "/a: the daemon refuses to restore it");
    daemon_.changeWorld([](DaemonWorld& world) {
        world.profile.mutableDictionary().set(restorestatus::failuresKey(0), "/a: no room");
    });
    EXPECT_EQ(run({"restore", "/a"}).errors, "kelvanectl: /a: no room\n");
    daemon_.forgetCalls();
    expectFailure(run({"restore", "/a/x", "/b/x", "--to", "/tmp"}), 2, "two of the paths");
    EXPECT_TRUE(daemon_.calls().empty());
}

TEST_F(KelvanectlOrders, ANameThatIsAlsoThePrintedFormOfAnotherIsTheOneInTheBackup) {
    const std::string typed = "/a\xEF\xBF\xBD"
                              "AAb"; // the printed form of the name "a\xAA" "b"
    const std::string exact = "/a\xEF\xBF\xBD"
                              "EF\xEF\xBF\xBD"
                              "BF\xEF\xBF\xBD"
                              "BDAAb"; // the form of just this name
    const auto restored = [&](bool isTyped, bool isExact) {
        daemon_.changeWorld([&](DaemonWorld& world) {
            world.bootVolume = Volumes::current().bootVolume().name;
            world.files.clear();
            world.addFile(typed, false, 1, isTyped);
            world.addFile(exact, false, 1, isExact);
        });
        daemon_.forgetCalls();
        const ChildProgram::Result result = run({"restore", "/b", typed});
        const std::vector<ReceivedCall> jobs = restores();
        return jobs.empty() ? result.errors : jobs.back().arguments[0].stringValue();
    };
    EXPECT_EQ(restored(true, false), onVolume(typed));
    EXPECT_EQ(restored(false, true), onVolume(exact));
    const std::string refusal = restored(true, true);
    EXPECT_NE(refusal.find("write " + exact + " for"), std::string::npos) << refusal;
    EXPECT_NE(refusal.find("$'/a\\xaab'"), std::string::npos) << refusal;
    EXPECT_EQ(daemon_.callCount("restoreFile:toPath:version:priority:"), 0U);
}

// While the root is not in the backup, the daemon has not listed the repository yet. A path below a link may
// still be in the backup.
TEST_F(KelvanectlOrders, NothingIsRestoredWhenAPathIsNotInTheBackup) {
    std::filesystem::create_directory_symlink("/", folder_ / "link");
    daemon_.changeWorld([](DaemonWorld& world) {
        world.bootVolume = Volumes::current().bootVolume().name;
        world.addFile("/", true, 1, true);
        world.addFile("/a", false, 1, true);
        world.addFile("/new", false, 1, false);
    });
    expectFailure(run({"restore", "/a", "/new"}), 1, "kelvanectl: /new: it is not in the backup");
    expectFailure(run({"restore", "[a,b]"}), 1, "/[a,b]: it is not in the backup");
    EXPECT_TRUE(restores().empty());
    EXPECT_EQ(run({"restore", "/a", folder_ / "link/old"}).status, 0);
    EXPECT_EQ(restores().size(), 2U);
    daemon_.changeWorld([](DaemonWorld& world) { world.files.clear(); });
    EXPECT_EQ(run({"restore", "/new"}).status, 0);
}

TEST_F(KelvanectlOrders, WaitingForARestoreEndsWithItAndSaysWhatFailed) {
    using namespace restorestatus;
    daemon_.changeWorld([](DaemonWorld& world) {
        world.profile.mutableDictionary().set(failuresKey(2), "/b/1: gone\n/b/2: no room\n");
    });
    daemon_.setState("extensions", Array{"alerts"});
    daemon_.setState(
        "alerts",
        Array{Dictionary{{"id", std::string(waitAlert)}, {"title", "Not now."}, {"text", "A lock."}}});
    answerJobs({running, waiting, waiting, waiting});
    const auto program = start({"restore", "--json", "--wait", "/a", "/b", "/c", "/d"});
    ASSERT_TRUE(daemon_.waitForCalls("getRestoreJobStatus:", 5)); // it has polled again
    daemon_.stop();                                               // and is restarted
    ASSERT_TRUE(daemon_.start());
    answerJobs({finished, incomplete, cancelled, unknown});
    const ChildProgram::Result result = program->finish();
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors,
              "kelvanectl: Not now. A lock.\nkelvanectl: /b/1: gone\nkelvanectl: /b/2: no room\n"
              "kelvanectl: /c: cancelled\nkelvanectl: /d: unknown\n");
    const Json json = Json::parse(result.output);
    EXPECT_EQ(json[0]["status"], "restored");
    EXPECT_EQ(json[1]["failures"], Json::array({"/b/1: gone", "/b/2: no room"}));
}

TEST_F(KelvanectlOrders, AlertsAreShownWithTheCommandsThatDoSomethingAboutThem) {
    daemon_.setState("alerts", plist(R"([{"id": "gone", "severity": "error", "title": "Many files\u001b[1m",
        "text": "1,000 files.\nKeep them?", "since": {"$date": "2025-01-02T03:04:05Z"},
        "actions": ["keep:a b", "forget:x", "forget:it's", "dismiss:"]}])"));
    expectFailure(run({"alert", "gone", "keep"}), 2, "does not support alerts");
    EXPECT_EQ(daemon_.callCount("performAlertAction:ofAlert:"), 0U);

    daemon_.setState("extensions", Array{"alerts"});
    const std::string shown = run({"alert"}).output;
    EXPECT_TRUE(shown.starts_with("Error: Many files\\x1b[1m\n    1,000 files.\n    Keep them?\n    Since "))
        << shown;
    EXPECT_TRUE(shown.ends_with("    $ kelvanectl alert gone keep\n    $ kelvanectl alert gone forget:x\n"
                                "    $ kelvanectl alert gone 'forget:it'\\''s'\n"
                                "    $ kelvanectl alert gone dismiss\n"))
        << shown;
    EXPECT_TRUE(run({"status"}).output.ends_with("\n\n" + shown));
    EXPECT_EQ(Json::parse(run({"alert", "--json"}).output)[0]["actions"][0], "keep:a b");

    daemon_.answer("performAlertAction:ofAlert:", "");
    EXPECT_EQ(run({"alert", "gone", "keep"}).status, 0);
    EXPECT_EQ(run({"alert", "gone", "forget:it's"}).status, 0);
    expectFailure(run({"alert", "gone", "forget"}), 2, "\"forget\" is ambiguous: forget:x, forget:it's");
    expectFailure(run({"alert", "gone", "mend"}), 2, "has no action \"mend\"");
    expectFailure(run({"alert", "other", "keep"}), 2, "there is no alert \"other\"");
    EXPECT_EQ(orders("perform"),
              (std::vector<ReceivedCall>{{"performAlertAction:ofAlert:", {"keep:a b", "gone"}},
                                         {"performAlertAction:ofAlert:", {"forget:it's", "gone"}}}));
    daemon_.answer("performAlertAction:ofAlert:", "A backup is running.");
    expectFailure(run({"alert", "gone", "keep"}), 2, "A backup is running.");
    EXPECT_EQ(run({"alert", "gone", "dismiss"}).status, 0);
    EXPECT_EQ(run({"alert"}).output, "No alerts.\n");
}

} // namespace
} // namespace kelvane::tests
