#include "Common/Protocols.h"
#include "PreferencePane/Help/ReportTransfer.h"
#include "Support/Logging.h"
#include "Tests/Help/HelpTabTest.h"

#include <QProgressBar>
#include <random>

namespace kelvane::tests {
namespace {

using Sending = HelpTabTest;

TEST_F(Sending, EndsWhateverTheServerDoes) {
    const std::tuple<const char*, std::size_t, ReportLimits, bool> cases[] = {
        {"fail", 1, {}, true},
        {"break", 0, {}, false},
        {"redirect", 1, {}, true},
        {"talk", 1, {}, true},
        {"refuse", 0, {}, false},
        {"hang", 1, {.standstill = 1s}, false},
        {"full", 0, {.connecting = 500ms}, false},
        {"flood", 1, {.answer = 100'000}, true}};
    for (const auto& [behaviour, requests, limits, isSent] : cases) {
        SCOPED_TRACE(behaviour);
        ReportServer server(behaviour);
        if (std::string_view(behaviour) == "refuse") {
            server.program.send(SIGKILL);
            EXPECT_EQ(server.program.finish().status, -1);
        }
        tools.limits = limits;
        showTab();
        const auto start = std::chrono::steady_clock::now();
        sendReport(server.host);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 10s) << behaviour;
        EXPECT_EQ(server.kept("requests").size(), requests) << behaviour;
        ASSERT_EQ(sheet() != nullptr, !isSent);
        EXPECT_EQ(control("EmailWindow").isVisible(), !isSent);
        if (isSent)
            continue;
        EXPECT_EQ(sheet()->text(), "Your report could not be sent.");
        EXPECT_FALSE(sheet()->informativeText().startsWith('.')) << "says why";
        EXPECT_EQ(text().string(), "It broke.");
        EXPECT_TRUE(canSend());
    }
}

TEST_F(Sending, TakesAsLongAsTheLineTakes) {
    std::string noise; // cannot be compressed
    std::mt19937 random(1);
    std::generate_n(std::back_inserter(noise), 4'000'000, [&] { return static_cast<char>(random()); });
    folder.write("daemon.log", noise);
    const ReportServer server("slow");
    tools.limits.standstill = 1s;
    showTab();
    QTimer reading;
    QObject::connect(&reading, &QTimer::timeout, [&] { server.program.send(SIGUSR1); });
    reading.start(100ms);
    const auto start = std::chrono::steady_clock::now();
    sendReport(server.host);
    EXPECT_GT(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_EQ(server.kept("requests"), "r");
    EXPECT_EQ(sheet(), nullptr);
}

TEST_F(Sending, IsAnHttpRequestToThatHostWhateverItsName) {
    const std::pair<QString, const char*> names[] = {
        {"ftp.localhost:PORT", "POST /Manage/ReportError.aspx "},
        {"127.0.0.1:PORT/at/", "POST /at/Manage/ReportError.aspx "},
        {"user:secret@127.0.0.1:PORT", ""},
        {"ftp://127.0.0.1:PORT", ""},
        {"file:///etc", ""},
        {"127.0.0.1:PORT\r\nX-Other: 1", ""},
        {"127.0.0.1:PORT -o x", ""},
        {"-o", ""},
    };
    for (const auto& [name, request] : names) {
        const ReportServer server;
        sendReport(QString(name).replace("PORT", server.port.c_str()).toStdString());
        EXPECT_EQ(server.kept("request").substr(0, std::strlen(request)), request) << name.toStdString();
        EXPECT_EQ(server.kept("request").empty(), *request == '\0') << name.toStdString();
    }
}

struct CallNotes : InvocationTarget {
    explicit CallNotes(Strings& list) : seen(list) {}
    Protocol methods() const override { return KelvaneClientProtocol; }
    void invoke(Invocation& call) override { seen.push_back(call.selector()); }
    Strings& seen;
};

struct PaintCount : QObject {
    explicit PaintCount(QWidget& counted) { counted.installEventFilter(this); }
    bool eventFilter(QObject*, QEvent* event) override {
        count += event->type() == QEvent::Paint;
        return false;
    }
    int count = 0;
};

TEST_F(Sending, HoldsEverythingButPaintingUntilItIsCancelled) {
    Strings seen;
    const auto target = std::make_shared<CallNotes>(seen);
    pane.state->setProxyDelegate(target);
    pane.state->onBegin();
    const ReportServer server("hang");
    auto& button = control<QAbstractButton>("helpButton");
    Timer timer;
    const PaintCount paints(*tab->view());
    QTimer look;
    int looks = 0;
    QObject::connect(&look, &QTimer::timeout, [&] {
        const auto* const bar = tab->view()->findChild<QProgressBar*>();
        if (bar == nullptr)
            return;
        if (looks++ == 0) {
            QObject::connect(&button, &QAbstractButton::clicked, [&] { seen.emplace_back("click"); });
            timer = qtLoop->schedule(0ms, MainLoop::Repeat::Once, [&] { seen.emplace_back("timer"); });
            daemon.callPanes("fileChanged:", {"/a"});
        }
        button.click(); // like a screen reader
        EXPECT_TRUE(bar->window()->isModal());
        EXPECT_FALSE(control("EmailWindow").isVisible());
        EXPECT_FALSE(control("emailButton").isEnabledTo(&control("EmailWindow"))) << "a second time";
        tab->view()->update();
        if (looks == 8)
            QTest::keyClick(bar->window(), Qt::Key_Escape);
        EXPECT_TRUE(bar->isVisible()) << "until it has stopped";
    });
    look.start(100ms);
    sendReport(server.host);
    EXPECT_EQ(seen, Strings());
    EXPECT_GE(looks, 8);
    EXPECT_EQ(sheet(), nullptr);
    click("cancelButton");
    EXPECT_GE(paints.count, looks / 2);
    ASSERT_TRUE(runUntil([&] { return seen.size() == 2; }));
    click("helpButton");
    EXPECT_EQ(std::set(seen.begin(), seen.end()), (std::set<std::string>{"click", "fileChanged:", "timer"}));
}

TEST_F(Sending, DoesNotHoldUpAnApplicationThatEnds) {
    const ReportServer server("hang");
    QEventLoop application;
    QTimer::singleShot(0, [&] { sendReport(server.host); });
    QTimer::singleShot(500ms, [] { QCoreApplication::exit(3); });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(application.exec(), 3);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

} // namespace
} // namespace kelvane::tests
