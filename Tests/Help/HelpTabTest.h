#pragma once

#include "Platform/Desktop/QtMainLoop.h"
#include "PreferencePane/Help/HelpController.h"
#include "PreferencePane/Help/HelpViewEmailTextView.h"
#include "Tests/Harness/TabTest.h"
#include "Tests/Tools/ChildProgram.h"

#include <QComboBox>

namespace kelvane::tests {

// A real HTTP server for reports; see report_server.py.
struct ReportServer {
    explicit ReportServer(const std::string& behaviour = "answer")
        : program({"/usr/bin/python3", REPORT_SERVER, folder.path(), behaviour}, {}) {}
    [[nodiscard]] std::string kept(std::string_view name) const { return folder.read(name); }

    const TemporaryFolder folder;
    ChildProgram program;
    const std::string port = program.readLine().value_or("none");
    const std::string host = "127.0.0.1:" + port;
};

// The tab on the application's main loop, which its sheets run, with private folders and a private log.
class HelpTabTest : public TabTest {
protected:
    HelpTabTest() : TabTest(demoWorld()) {
        folder.write("tmp/none", "");
        attach(pane);
        observe(KelvaneBackupStateConnectionChangedNotification,
                [this] { pane.post(KelvanePrefPaneReadyChangedNotification); });
        showTab();
        connect();
    }
    ~HelpTabTest() override {
        pane.state->onEnd();
        daemon.stop();
        EXPECT_TRUE(runUntil([] { return KelvaneSocket::liveThreads() == 0; }));
    }
    [[nodiscard]] const QWidget& shown() const override { return *tab->view(); }
    void showTab() {
        tab = std::make_unique<KelvaneHelpController>(pane, tools);
        tab->awakeFromNib();
        tab->view()->show();
    }
    HelpViewEmailTextView& text() const { return control<HelpViewEmailTextView>("emailTextView"); }
    [[nodiscard]] bool canSend() const { return control("emailButton").isEnabled(); }
    void click(const char* name) const {
        ASSERT_TRUE(control(name).isVisible()) << name;
        QTest::mouseClick(&control(name), Qt::LeftButton);
    }
    void chooseCategory(int index) const {
        auto& categories = control<QComboBox>("emailCategory");
        while (categories.currentIndex() != index)
            QTest::keyClick(&categories, categories.currentIndex() < index ? Qt::Key_Down : Qt::Key_Up);
    }
    void write(const QString& report = "It broke.") const {
        click("helpButton");
        click("sendAnEmailButton");
        chooseCategory(1);
        text().insertPlainText(report);
    }
    // Closes the message of an earlier report first.
    void sendReport(const std::string& host) {
        delete sheet();
        daemon.answer("serverURL", host);
        write();
        click("emailButton");
    }

    const EnvironmentVariable temporaryFiles{"TMPDIR", (folder / "tmp").c_str()};
    const EnvironmentVariable proxies[3]{
        {"http_proxy", nullptr}, {"all_proxy", nullptr}, {"ALL_PROXY", nullptr}};
    const std::string logPath = folder.write("daemon.log", "It began.\n");
    const std::shared_ptr<QtMainLoop> qtLoop = std::make_shared<QtMainLoop>();
    PaneDouble pane{std::make_shared<Bundle>(Value(Dictionary{{"DaemonPath", folder / "daemon.sock"},
                                                              {"CFBundleShortVersionString", "1.2"},
                                                              {"SupportPhoneNumber", "+1 555 0142"},
                                                              {"Kelvane Log Path", logPath},
                                                              {"Support mailto name", "help"},
                                                              {"Support mailto domain", "ex.org"},
                                                              {"Support Chat URL", "%1$@/chat?%1$@"}})),
                    qtLoop};
    ReportTools tools;
    std::unique_ptr<KelvaneHelpController> tab;
};

} // namespace kelvane::tests
