#pragma once

#include "FakeDaemon/FakeDaemon.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "PreferencePane/Help/HelpController.h"
#include "PreferencePane/Help/HelpViewEmailTextView.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/PaneDouble.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Harness/TemporaryFolder.h"
#include "Tests/Tools/ChildProgram.h"

#include <QComboBox>
#include <QMessageBox>
#include <QTest>
#include <gtest/gtest.h>

namespace kelvane::tests {

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

// A real server for reports; see report_server.py.
struct ReportServer {
    explicit ReportServer(const std::string& behaviour = "answer")
        : program({"/usr/bin/python3", REPORT_SERVER, folder.path(), behaviour}, {}) {}
    [[nodiscard]] std::string kept(std::string_view name) const { return folder.read(name); }

    const TemporaryFolder folder;
    ChildProgram program;
    const std::string port = program.readLine().value_or("none");
    const std::string host = "127.0.0.1:" + port;
};

// The tab on a fake daemon, with folders and a log of its own.
class HelpTabTest : public testing::Test {
protected:
    HelpTabTest() {
        folder.write("tmp/none", "");
        pane.state = std::make_shared<BackupState>(loop, pane.notifications(), pane.bundle());
        observer = pane.notifications()->observe(
            std::string(KelvaneBackupStateConnectionChangedNotification), pane.state.get(),
            [this](const Notification&) { pane.post(KelvanePrefPaneReadyChangedNotification); });
        showTab();
        EXPECT_TRUE(daemon.start());
        pane.state->onBegin();
    }
    ~HelpTabTest() override {
        pane.state->onEnd();
        daemon.stop();
        EXPECT_TRUE(runUntil([] { return KelvaneSocket::liveThreads() == 0; }));
    }
    void showTab() {
        tab = std::make_unique<KelvaneHelpController>(pane, tools);
        tab->awakeFromNib();
        tab->view()->show();
    }
    // By the name it has in its form.
    template <class Control = QWidget>
    [[nodiscard]] Control& control(const char* name) const {
        return *tab->view()->findChild<Control*>(name);
    }
    [[nodiscard]] HelpViewEmailTextView& text() const {
        return control<HelpViewEmailTextView>("emailTextView");
    }
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
    // What an earlier report has told is dismissed first.
    void sendReport(const std::string& host) {
        qDeleteAll(tab->view()->findChildren<QMessageBox*>());
        daemon.answer("serverURL", host);
        write();
        click("emailButton");
    }

    const TemporaryFolder folder;
    const EnvironmentVariable preferences{"XDG_CONFIG_HOME", folder.path().c_str()};
    const EnvironmentVariable temporaryFiles{"TMPDIR", (folder / "tmp").c_str()};
    const EnvironmentVariable proxies[3]{
        {"http_proxy", nullptr}, {"all_proxy", nullptr}, {"ALL_PROXY", nullptr}};
    const std::string logPath = folder.write("daemon.log", "It began.\n");
    const std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
    FakeDaemon daemon{folder / "daemon.sock", demoWorld()};
    PaneDouble pane{std::make_shared<Bundle>(Value(Dictionary{{"DaemonPath", folder / "daemon.sock"},
                                                              {"CFBundleShortVersionString", "1.2"},
                                                              {"SupportPhoneNumber", "+1 555 0142"},
                                                              {"Kelvane Log Path", logPath},
                                                              {"Support mailto name", "help"},
                                                              {"Support mailto domain", "ex.org"},
                                                              {"Support Chat URL", "%1$@/chat?%1$@"}})),
                    loop};
    NotificationCenter::Observer observer;
    ReportTools tools;
    std::unique_ptr<KelvaneHelpController> tab;
};

} // namespace kelvane::tests
