#include "Tests/Help/HelpTabTest.h"

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QTextBrowser>
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
        if (pane.disk.exists(logPath)) // not the first time
            EXPECT_EQ(pane.opened(), Strings{logPath});
        else if (std::string_view(choice) == "showLogButton")
            pane.disk.files[logPath] = FileAttributes::Kind::File;
    }
    EXPECT_EQ(pane.calls, (Strings{"showOnlineHelp", "showOnlineHelp"}));

    EXPECT_TRUE(control("sendAnEmailButton").isEnabled());
    daemon.stop();
    EXPECT_TRUE(runUntil([&] { return !control("sendAnEmailButton").isEnabled(); }));
    PaneDouble bare;
    KelvaneHelpController other(bare);
    other.awakeFromNib();
    other.view()->show();
    EXPECT_FALSE(other.view()->findChild<QWidget*>("supportPhone")->isVisible());
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
    struct {
        const char* what;
        std::function<void(HelpViewEmailTextView&)> edit;
        int count; // afterwards
    } const edits[] = {
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

} // namespace
} // namespace kelvane::tests
