#include "Platform/FileDescriptor.h"
#include "Platform/Processes/ChildProcess.h"
#include "Support/Preferences/DefaultsDB.h"
#include "Tests/Status/StatusTabTest.h"

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace kelvane::tests {
namespace {

// The tab without a daemon: "Enabled" runs Enable, and uninstalling is offered.
class HandingOver : public StatusTabTest {
protected:
    void SetUp() override { showTab(); }
    // Replaces a tool of the bundle by a script that records its arguments and then runs the commands.
    void writeTool(const std::string& name, const std::string& andThen) const {
        folder.writeProgram("Helpers/" + name, "#!/bin/sh\ncd '" + folder.path() +
                                                   "'\necho $* >arguments\nps -o pgid= -p $$ >group\n"
                                                   "stat -c %a auth >mode\ncat auth >copy\n" +
                                                   andThen + "\n");
    }
    static std::string leaveWord(int word) {
        return "printf '\\00" + std::to_string(word) + "' | dd of=auth bs=1 seek=36 conv=notrunc status=none";
    }
    void uninstall() const {
        click("uninstallButton");
        answer("Uninstall");
    }
    [[nodiscard]] bool hasRun() const { return folder.names().contains("arguments"); }
    void expectNothingLeft() const {
        EXPECT_FALSE(folder.names().contains("auth"));
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child or its zombie";
    }
    const std::string uid = std::to_string(::getuid());
};

TEST_F(HandingOver, TheFileHoldsTheAuthorizationAndZerosForTheTimeOfTheTool) {
    const AuthorizationForm form = authorizationForm(currentProcess().value());
    const std::string whole = std::string(form.begin(), form.end()) + std::string(8, '\0');
    writeTool("Enable", "exit 0");
    for (const char* const before : {"", "one of our own, from another time, and longer"}) {
        folder.write(*before ? "auth" : "nothing", before);
        choose(0);
        EXPECT_EQ(folder.read("copy"), whole);
        EXPECT_EQ(folder.read("mode"), "700\n");
        EXPECT_EQ(folder.read("arguments"), "0 " + uid + " load\n");
        expectNothingLeft();
    }
    EXPECT_TRUE(pane.flags().enableAuthorized);
    EXPECT_TRUE(runUntil([this] { return pane.lock->state() == Authorization::State::Locked; }))
        << "the password was for one order";
    pane.lock->unlock([](bool) {});
    ASSERT_TRUE(runUntil([this] { return pane.lock->state() == Authorization::State::Authorized; }));
    choose(0);
    QCoreApplication::processEvents();
    EXPECT_EQ(pane.lock->state(), Authorization::State::Authorized) << "somebody else has unlocked it";
}

TEST_F(HandingOver, WhatIsNotThisUsersOwnFileIsRefused) {
    const std::string target = folder.write("target", "precious");
    const std::function<int()> obstacles[] = {
        [&] { return ::symlink(target.c_str(), handOffPath.c_str()); },
        [&] { return ::link(target.c_str(), handOffPath.c_str()); },
        [&] { return ::mkfifo(handOffPath.c_str(), 0600); },
        [&] { // owned by another user, which only root can create
            folder.write("auth", "");
            return ::geteuid() == 0 ? ::chown(handOffPath.c_str(), 65534, 65534)
                                    : ::unlink(handOffPath.c_str()) + ::mkdir(handOffPath.c_str(), 0);
        },
    };
    writeTool("Enable", "exit 3");
    for (const auto& obstacle : obstacles) {
        ASSERT_EQ(obstacle(), 0);
        choose(0);
        EXPECT_FALSE(hasRun());
        EXPECT_EQ(folder.read("target"), "precious");
        ASSERT_NE(sheet(), nullptr);
        EXPECT_TRUE(sheet()->informativeText().contains(QString::fromStdString(handOffPath)));
        answer("OK");
    }
    expectNothingLeft();
    pane.flags().enableAuthorized = true;
    choose(0);
    answer("OK");
    EXPECT_TRUE(hasRun()); // the obstacle has been removed
    EXPECT_FALSE(pane.flags().enableAuthorized);
}

TEST_F(HandingOver, DisablingLastsUntilTheLinkDropsOrEndsWithARefusal) {
    connect();
    writeTool("Disable", "exit 0");
    choose(3);
    EXPECT_EQ(folder.read("arguments"), "0 " + uid + " unload\n");
    EXPECT_EQ(modes().currentIndex(), 3); // while the daemon still answers
    EXPECT_EQ(DefaultsDB::intProperty("modeSelectionPopupIndex"), 3);
    loseDaemon();
    ASSERT_TRUE(daemon.start());
    loop->advance(1s);
    EXPECT_EQ(modes().currentIndex(), 0);
    choose(3);
    writeTool("Enable", "exit 0");
    choose(0); // the user changes their mind
    EXPECT_EQ(modes().currentIndex(), 0);
    choose(3);
    EXPECT_EQ(modes().currentIndex(), 3);
    tab->writeStatusFieldsToDefaultsDB(); // hidden, and shown once another program has enabled it
    tab->didSelectPrefPane();
    EXPECT_EQ(modes().currentIndex(), 0);

    writeTool("Disable", "exit 1");
    choose(3);
    answer("OK");
    EXPECT_FALSE(pane.flags().disableAuthorized);
    EXPECT_EQ(modes().currentIndex(), 0);
    EXPECT_TRUE(modes().isEnabled());
}

TEST_F(HandingOver, EnablingSetsNothingAtADaemonThatComesBackMeanwhile) {
    daemon.setState("recoverMode", true);
    pane.state->onBegin();
    writeTool("Enable", "while ! [ -e go ]; do sleep 0.01; done");
    QTimer::singleShot(0, [this] {
        EXPECT_TRUE(daemon.start());
        loop->advance(1s);
        folder.write("go", "");
    });
    choose(0);
    EXPECT_TRUE(pane.connected());
    EXPECT_EQ(daemon.callCount("setPausedMinutes:") + daemon.callCount("setRecoverMode:"), 0U);
    EXPECT_EQ(modes().currentIndex(), 2) << "which is left with a warning";
}

TEST_F(HandingOver, ARefusedAuthorizationRunsNothingAndGoesOnAsIfItHad) {
    pane.lock = std::make_unique<FixedAuthorization>(std::make_shared<QtMainLoop>(), false);
    writeTool("Enable", "exit 0");
    pane.calls.clear();
    choose(0);
    EXPECT_FALSE(hasRun());
    EXPECT_EQ(pane.calls.front(), "didSelect");
    EXPECT_EQ(DefaultsDB::intProperty("modeSelectionPopupIndex", false, -1), 0);
    connect();
    pane.flags().disableAuthorized = true; // from an earlier choice
    choose(3);
    EXPECT_EQ(modes().currentIndex(), 0);
    EXPECT_EQ(sheet(), nullptr) << "who refuses knows";
}

TEST_F(HandingOver, WhateverFailsIsToldWithItsReason) {
    const std::tuple<const char*, const char*, const char*> tools[] = {
        {"Enable", "echo 'Enable: no daemon is listening at /x' >&2\nexit 69",
         "Enable: no daemon is listening at /x"},
        {"Enable", "exit 3", "Enable ended with status 3."},
        {"Disable", "echo one >&2\necho two >&2\nexit 1", "one\ntwo"},
        {"Disable", nullptr, "The program Disable is missing. Re-install Kelvane."},
    };
    for (const auto& [tool, script, reason] : tools) {
        const bool isEnabling = tool == std::string("Enable");
        if (!isEnabling && !pane.connected())
            connect();
        if (script != nullptr)
            writeTool(tool, script);
        else
            std::filesystem::remove(folder / "Helpers/Disable");
        choose(isEnabling ? 0 : 3);
        ASSERT_NE(sheet(), nullptr) << tool;
        EXPECT_EQ(sheet()->text(),
                  isEnabling ? "Kelvane could not be enabled" : "Kelvane could not be disabled");
        EXPECT_EQ(sheet()->informativeText(), reason);
        answer("OK");
        EXPECT_EQ(modes().currentIndex(), isEnabling ? 3 : 0) << tool;
    }
}

// A daemon at another socket does not belong to this pane.
TEST_F(HandingOver, ToolsAreToldWhereTheDaemonOfThisPaneServes) {
    const EnvironmentVariable own("KELVANE_DAEMON", "/of/the/pane's/own/environment");
    for (const std::string tool : {"Enable", "Uninstall"}) {
        writeTool(tool, "echo $KELVANE_DAEMON >where");
        tool == "Enable" ? choose(0) : uninstall();
        EXPECT_EQ(folder.read("where"), folder / "daemon.sock\n") << tool;
    }
}

TEST_F(HandingOver, APaneThatIsHiddenWhileAToolRunsBeginsNoConnection) {
    writeTool("Enable", "while [ ! -e go ]; do :; done");
    QTimer hiding;
    QObject::connect(&hiding, &QTimer::timeout, [&] {
        if (!hasRun())
            return;
        EXPECT_FALSE(modes().isEnabled());
        tab->writeStatusFieldsToDefaultsDB();
        folder.write("go", "");
        hiding.stop();
    });
    hiding.start(0);
    pane.calls.clear();
    choose(0);
    EXPECT_TRUE(hasRun());
    EXPECT_NE(pane.calls.front(), "didSelect");
}

TEST_F(HandingOver, APaneThatIsHiddenWhileItAsksTakesTheQuestionBack) {
    struct Question : FixedAuthorization {
        using FixedAuthorization::FixedAuthorization;
        void unlock(std::function<void(bool)> completion) override { answered = std::move(completion); }
        void cancelUnlock() override { std::exchange(answered, {})(false); }
        std::function<void(bool)> answered;
    };
    pane.lock = std::make_unique<Question>(std::make_shared<QtMainLoop>(), true);
    writeTool("Enable", "");
    QTimer::singleShot(0, &modes(), [this] { tab->writeStatusFieldsToDefaultsDB(); });
    choose(0); // otherwise this never ends
    EXPECT_FALSE(hasRun());
}

TEST_F(HandingOver, UninstallingOpensTheSurveyAndEndsTheHost) {
    writeTool("Uninstall", leaveWord(1));
    click("uninstallButton");
    answer("Cancel");
    EXPECT_FALSE(hasRun());
    EXPECT_EQ(pane.opened(), Strings());
    uninstall();
    EXPECT_EQ(pane.opened(), Strings{"http://ex.org/why"});
    EXPECT_EQ(folder.read("arguments"), std::to_string(::getpid()) + ' ' + uid + " uninstall\n");
    EXPECT_NE(std::stoi(folder.read("group")), ::getpgrp());
    EXPECT_EQ(pane.calls.back(), "terminateHost");
    expectNothingLeft();
    tab->writeStatusFieldsToDefaultsDB();
    EXPECT_FALSE(DefaultsDB::stringProperty("lastBackupStatusStr")); // no result arrives
}

TEST_F(HandingOver, AnUninstallerThatFailsOrDiesIsToldOf) {
    for (const std::string& end : {leaveWord(2), std::string("exit 0"), std::string("kill -9 $$")}) {
        writeTool("Uninstall", end);
        uninstall();
        ASSERT_NE(sheet(), nullptr) << end;
        EXPECT_EQ(sheet()->text(), "The un-installer was unable to run");
        EXPECT_TRUE(sheet()->informativeText().startsWith("Re-authenticate and try again."));
        answer("OK");
        expectNothingLeft();
    }
    folder.write("Helpers/Uninstall", "no program\n"); // cannot be executed
    uninstall();
    answer("OK");
    EXPECT_NE(pane.calls.back(), "terminateHost");
    std::filesystem::remove(folder / "Helpers/Uninstall");
    uninstall();
    EXPECT_TRUE(sheet()->informativeText().endsWith("The program Uninstall is missing. Re-install Kelvane."));
}

TEST_F(HandingOver, AToolInheritsNoDescriptorAndNoSignalThatDoesNothing) {
    std::signal(SIGPIPE, SIG_IGN);
    const FileDescriptor leak(::open(folder.write("secret", "").c_str(), O_RDONLY));
    writeTool("Enable", "ls -l /proc/$$/fd >fds\ngrep SigIgn /proc/$$/status >signals");
    choose(0);
    EXPECT_EQ(std::stoull(folder.read("signals").substr(7), nullptr, 16) & (1U << (SIGPIPE - 1U)), 0U);
    EXPECT_EQ(folder.read("fds").find("secret"), std::string::npos) << folder.read("fds");
    auto sleeping = ChildProcess::start({.arguments = {"sleep", "5"}});
    sleeping->send(SIGTERM);
    sleeping->waitForEnd();
    EXPECT_EQ(sleeping->exitStatus(), 128 + SIGTERM);
}

} // namespace
} // namespace kelvane::tests
