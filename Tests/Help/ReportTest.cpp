#include "PreferencePane/Help/LogArchive.h"
#include "Support/Logging.h"
#include "Tests/Help/HelpTabTest.h"

#include <sys/stat.h>

namespace kelvane::tests {
namespace {

// What a server gets.
struct Reports : HelpTabTest {
    const ReportServer server;
};

TEST_F(Reports, HaveEveryPartAsItIs) {
    const QString report = "“It” broke\u00A0at 5 %,\n--and the rest\t😀\n\n";
    KelvaneLogStart(folder.path());
    std::string log;
    const LogSinkToken sink = setLogSink([&](const LogEntry& entry) { log += entry.text + '\n'; });
    daemon.answer("computerNumber", 4294967295U);
    daemon.answer("serverURL", server.host);
    write(report);
    chooseCategory(2);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    click("emailButton");
    // What support asks for when a report does not arrive.
    EXPECT_NE(testing::internal::GetCapturedStdout().find("HTTP/1.1 200 OK"), std::string::npos);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("> POST /Manage"), std::string::npos);
    EXPECT_EQ(operatingSystemText(0x1058), "Mac OS X 10.5.8");
    const std::pair<std::string, std::string> parts[] = {
        {"to", "help"},
        {"to-domain", "ex.org"},
        {"subject", "User incident report"},
        {"from", "maria@example.net"},
        {"version", "1.2"},
        {"os", "Mac OS X 10.9.0"},
        {"category", "Restoring"},
        {"comment", report.toStdString()},
        {"serial", "-1"},
    };
    std::string place = "00";
    for (const auto& [name, contents] : parts) {
        EXPECT_EQ(server.kept(place + ".head"), "Content-Disposition: form-data; name=\"" + name + '"');
        EXPECT_EQ(server.kept(place), contents);
        ++place.back();
    }
    EXPECT_EQ(server.kept("09.head"),
              "Content-Disposition: form-data; name=\"KelvaneLog\"; "
              "filename=\"KelvaneLog.zip\"\r\nContent-Type: application/octet-stream");
    EXPECT_EQ(server.kept("zip" + logPath), folder.read("daemon.log"));
    EXPECT_EQ(server.folder.names().count("10"), 0U);
    EXPECT_NE(log.find("curl: HTTP/1.1 200 OK"), std::string::npos);
    EXPECT_EQ(log.find("broke"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder / "tmp/KelvaneLog.zip"));
}

TEST_F(Reports, AreNotMadeWithoutAnAccount) {
    folder.write("tmp/KelvaneLog.zip", "somebody's");
    daemon.answer("userEmail", "");
    sendReport(server.host);
    daemon.answerAsUsual("userEmail");
    sendReport("");
    EXPECT_EQ(folder.read("tmp/KelvaneLog.zip"), "somebody's");
    EXPECT_EQ(server.kept("requests"), "");
    daemon.answer("computerNumber", 0); // which is one
    sendReport(server.host);
    EXPECT_EQ(server.kept("requests"), "r");
}

TEST_F(Reports, TakeOnlyAnArchiveOfOurs) {
    const std::string precious = folder.write("precious", "PKprecious");
    const std::string place = folder / "tmp/KelvaneLog.zip";
    const std::pair<std::function<int()>, const char*> cases[] = {
        {[&] { return ::symlink(precious.c_str(), place.c_str()); }, "It began.\n"},
        {[&] { return ::link(precious.c_str(), place.c_str()); }, "It began.\n"},
        {[&] { return ::mkfifo(place.c_str(), 0600); }, "It began.\n"},
        {[&] { return ::mkdir(place.c_str(), 0700); }, ""},
        {[&] { return ::rmdir(place.c_str()) + ::unlink(logPath.c_str()); }, ""},
        {[&] { return ::mkfifo(logPath.c_str(), 0600); }, ""},
    };
    for (const auto& [prepare, log] : cases) {
        ASSERT_EQ(prepare(), 0);
        const ReportServer own;
        sendReport(own.host);
        EXPECT_EQ(own.kept("07"), "It broke.");
        EXPECT_EQ(own.kept("zip" + logPath), log);
        EXPECT_EQ(folder.read("precious"), "PKprecious");
    }
    for (const char* const noPath : {"", "-", "daemon.log"})
        EXPECT_FALSE(LogArchive(tools.zipProgram).zip(noPath)) << noPath;
}

TEST_F(Reports, GoWhateverBecomesOfTheArchive) {
    tools.zipProgram = folder / "zip";
    tools.limits.zipping = 300ms;
    showTab();
    for (const char* const commands : {"exit 1", "ln -s /etc/passwd $1", "echo >$1.2; ln $1.2 $1",
                                       "exec tail -f /dev/null", "echo $# $2 >$1; stat -c %a $1 >>$1"}) {
        EXPECT_EQ(server.kept("09"), "") << "before " << commands;
        folder.write("zip", std::string("#!/bin/sh\n") + commands + '\n');
        ASSERT_EQ(::chmod(tools.zipProgram.c_str(), 0755), 0);
        sendReport(server.host);
    }
    EXPECT_EQ(server.kept("09"), "2 " + logPath + "\n600\n");
    ASSERT_EQ(::unlink(tools.zipProgram.c_str()), 0);
    sendReport(server.host);
    EXPECT_EQ(server.kept("requests"), "rrrrrr");
}

} // namespace
} // namespace kelvane::tests
