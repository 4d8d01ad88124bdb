#include "PreferencePane/Help/LogArchive.h"
#include "Support/Logging.h"
#include "Tests/Help/HelpTabTest.h"

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QTextBrowser>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane::tests {
namespace {

TEST_F(HelpTabTest, OffersChoicesEachOfWhichEndsTheSheet) {
    EXPECT_EQ(control<QLabel>("supportPhone").text(), "+1 555 0142");
    EXPECT_TRUE(control("supportPhone").isVisible());
    pane.options = Dictionary{{"bypassHelpSheetToWeb", true}};
    click("helpButton");
    EXPECT_FALSE(control("HelpWindow").isVisible());
    pane.options = {};
    for (const char* const choice : {"onlineHelpButton", "showLogButton", "showLogButton", "closeButton"}) {
        click("helpButton");
        EXPECT_TRUE(control("HelpWindow").isModal());
        click(choice);
        EXPECT_FALSE(control("HelpWindow").isVisible());
        if (pane.disk.exists(logPath)) // except the first time
            EXPECT_EQ(pane.opened(), Strings{logPath});
        else if (std::string_view(choice) == "showLogButton")
            pane.disk.files[logPath] = FileAttributes::Kind::File;
    }
    EXPECT_EQ(pane.calls, (Strings{"showOnlineHelp", "showOnlineHelp"}));
    pane.failToOpen("no program");
    ASSERT_TRUE(sheet());
    EXPECT_EQ(sheet()->text().toStdString(), logPath + " could not be opened.");
    EXPECT_EQ(sheet()->informativeText(), "no program");
    delete sheet();

    EXPECT_TRUE(control("sendAnEmailButton").isEnabled());
    daemon.stop();
    EXPECT_TRUE(runUntil([&] { return !control("sendAnEmailButton").isEnabled(); }));
    PaneDouble bare;
    KelvaneHelpController other(bare);
    other.awakeFromNib();
    other.view()->show();
    for (const char* const name : {"supportPhone", "supportPhoneCaption"})
        EXPECT_FALSE(other.view()->findChild<QWidget*>(name)->isVisible()) << name;
}

TEST_F(HelpTabTest, BeginsEachReportAnew) {
    for (int time = 0; time < 2; ++time) {
        write();
        EXPECT_EQ(control<QLineEdit>("emailToField").text(), "help@ex.org");
        EXPECT_EQ(control<QLineEdit>("emailFromField").text(), "maria@example.net");
        EXPECT_EQ(text().charsInTextField(), 9);
        EXPECT_EQ(control("emailLogCaption").isVisible(), time == 1)
            << "only a log that is there is sent along";
        pane.disk.files[logPath] = FileAttributes::Kind::File;
        EXPECT_TRUE(canSend());
        text().undo();
        text().undo();
        EXPECT_EQ(text().string(), "") << "nothing comes back from the last time";
        text().insertPlainText("Lost\u2028it");
        EXPECT_EQ(text().string().toStdString(), "Lost\nit");
        EXPECT_EQ(text().charsInTextField(), 7);
        EXPECT_FALSE(control("HelpWindow").isVisible());
        click("cancelButton");
        EXPECT_FALSE(control("EmailWindow").isVisible());
    }
    click("helpButton");
    click("sendAnEmailButton");
    EXPECT_EQ(control<QComboBox>("emailCategory").currentIndex(), 0);
}

TEST_F(HelpTabTest, InvitesToAChatByALinkToItsServer) {
    write();
    auto& chat = control<QTextBrowser>("chatMessage");
    const QString link = "http://backup.example.net/chat?backup.example.net";
    EXPECT_EQ(chat.toPlainText(), "Click to chat with a customer support representative: \n        " + link);
    QTextCursor end(chat.document());
    end.movePosition(QTextCursor::End);
    EXPECT_TRUE(end.charFormat().fontUnderline());
    EXPECT_EQ(end.charFormat().foreground(), chat.palette().link());
    QTest::keyClick(&chat, Qt::Key_Tab);
    QTest::keyClick(&chat, Qt::Key_Return);
    EXPECT_EQ(pane.opened(), Strings{link.toStdString()});
    click("cancelButton");
    daemon.answer("serverURL", "");
    write();
    EXPECT_EQ(chat.toPlainText(), "");
}

TEST_F(HelpTabTest, CountsCharactersEditByEdit) {
    // Each edit with the character count expected after it.
    const std::tuple<const char*, std::function<void(HelpViewEmailTextView&)>, int> edits[] = {
        {"typing", [](auto& view) { QTest::keyClicks(&view, "abc"); }, 3},
        {"a line break", [](auto& view) { QTest::keyClick(&view, Qt::Key_Return); }, 4},
        {"beyond the first plane", [](auto& view) { view.insertPlainText("😀"); }, 6},
        {"undoing", [](auto& view) { view.undo(); }, 4},
        {"replacing all", [](auto& view) { view.setPlainText("hello"); }, 5},
        {"fewer counted than deleted", [](auto& view) { view.setCharsInTextField(1), view.clear(); }, 0},
        {"from there", [](auto& view) { view.insertPlainText("x"); }, 1},
    };
    chooseCategory(2);
    for (const auto& [what, edit, count] : edits) {
        edit(text());
        EXPECT_EQ(text().charsInTextField(), count) << what;
        EXPECT_EQ(canSend(), count > 0) << what;
    }
    for (const int category : {1, 0}) {
        chooseCategory(category);
        EXPECT_EQ(canSend(), category > 0);
    }
    text().insertPlainText("before there is a category");
    EXPECT_FALSE(canSend());
}

TEST_F(HelpTabTest, CompressesWhatGunzipReadsAgain) {
    const std::string contents(100'000, 'x');
    const std::string precious = folder.write("precious", "precious");
    ASSERT_EQ(::symlink(precious.c_str(), (folder / "tmp/KelvaneLog.gz").c_str()), 0);
    const Data compressed = KelvaneHelpController::compressFile(folder.write("log", contents)).value();
    EXPECT_LT(compressed.size(), 1000U);
    ChildProgram gunzip({"/bin/gunzip"}, {},
                        {reinterpret_cast<const char*>(compressed.data()), compressed.size()});
    EXPECT_TRUE(gunzip.finish().output == contents);
    EXPECT_EQ(folder.read("precious"), "precious");
    EXPECT_FALSE(std::filesystem::exists(folder / "tmp/KelvaneLog.gz"));
    for (const std::string& none : {folder.write("empty", ""), folder / "missing", folder.path()})
        EXPECT_FALSE(KelvaneHelpController::compressFile(none));
}

// The request that a server receives.
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
    // The details that support needs when a report does not arrive.
    EXPECT_NE(testing::internal::GetCapturedStdout().find("HTTP/1.1 200 OK"), std::string::npos);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("> POST /Manage"), std::string::npos);
    EXPECT_EQ(operatingSystemText(0x1058), "Mac OS X 10.5.8");
    const std::pair<std::string, std::string> parts[] = {{"to", "help"},
                                                         {"to-domain", "ex.org"},
                                                         {"subject", "User incident report"},
                                                         {"from", "maria@example.net"},
                                                         {"version", "1.2"},
                                                         {"os", "Mac OS X 10.9.0"},
                                                         {"category", "Restoring"},
                                                         {"comment", report.toStdString()},
                                                         {"serial", "-1"}};
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
    for (const char* const noPath : {"", "-", "daemon.log"}) {
        std::string reason;
        EXPECT_FALSE(LogArchive(tools.zipProgram).zip(noPath, reason)) << noPath;
        EXPECT_NE(reason, "") << noPath;
    }
}

TEST_F(Reports, GoWhateverBecomesOfTheArchive) {
    tools.zipProgram = folder / "zip";
    tools.limits.zipping = 300ms;
    pane.disk.files[logPath] = FileAttributes::Kind::File;
    showTab();
    for (const char* const commands : {"exit 1", "ln -s /etc/passwd $1", "echo >$1.2; ln $1.2 $1",
                                       "exec tail -f /dev/null", "echo $# $2 >$1; stat -c %a $1 >>$1"}) {
        EXPECT_EQ(server.kept("09"), "") << "before " << commands;
        folder.writeProgram("zip", std::string("#!/bin/sh\n") + commands + '\n');
        sendReport(server.host);
    }
    EXPECT_EQ(server.kept("09"), "2 " + logPath + "\n600\n");
    ASSERT_EQ(::unlink(tools.zipProgram.c_str()), 0);
    EXPECT_EQ(sheet(), nullptr) << "it went with an archive";
    sendReport(server.host);
    ASSERT_NE(sheet(), nullptr);
    EXPECT_EQ(sheet()->text(), "Your report was sent without the log.");
    EXPECT_EQ(server.kept("requests"), "rrrrrr");
}

} // namespace
} // namespace kelvane::tests
