// Runs the bundle's tools as programs, with the real local daemon and the real polkitd.

#include "FakeDaemon/FakeDaemon.h"
#include "PaneTools/HandOffFile.h"
#include "PaneTools/LocalService.h"
#include "Platform/Desktop/Authorization/PolicyFile.h"
#include "Platform/FileContents.h"
#include "Tests/Desktop/PrivatePolkit.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Tools/ChildProgram.h"

#include <sys/stat.h>

namespace kelvane::tests {
namespace {

using Strings = std::vector<std::string>;

// A user whose folders belong to the test. The tools find the trampoline beside them and the daemon in PATH.
class Programs : public testing::Test {
protected:
    Programs() { std::filesystem::create_directories(folder / "home"); }
    ~Programs() override { EXPECT_EQ(run("Disable", {"0", uid, "unload"}), ""); }

    // Runs a tool and returns its standard error.
    std::string run(const std::string& tool, const Strings& arguments) {
        Strings words{std::string(PANE_TOOLS) + '/' + tool};
        words.insert(words.end(), arguments.begin(), arguments.end());
        const Strings environment{"PATH=" + path,
                                  "HOME=" + folder / "home",
                                  "XDG_CONFIG_HOME=" + folder / "config",
                                  "XDG_STATE_HOME=" + folder / "state",
                                  "XDG_CACHE_HOME=" + folder / "cache",
                                  "XDG_RUNTIME_DIR=" + folder / "run",
                                  "KELVANE_DAEMON=" + daemonPath,
                                  "DBUS_SYSTEM_BUS_ADDRESS=" + busAddress};
        const ChildProgram::Result result = ChildProgram(words, environment).finish();
        status = result.status;
        return result.errors;
    }
    bool isServing() const { return std::filesystem::exists(folder / "run/kelvane/daemon.sock"); }

    const TemporaryFolder folder;
    const std::string uid = std::to_string(::getuid());
    const std::string pid = std::to_string(::getpid());
    std::string path = DAEMON_FOLDER;
    std::string daemonPath; // empty for the default socket
    std::string busAddress = "unix:path=/nowhere";
    int status = -1; // of the last tool
};

TEST_F(Programs, NonsenseIsRefusedWithAClearLine) {
    const std::pair<std::string, Strings> cases[] = {{"Enable", {}},
                                                     {"Enable", {"0", uid, "unload"}},
                                                     {"Enable", {"1", uid, "load"}},
                                                     {"Enable", {"0", uid + "x", "load"}},
                                                     {"Disable", {"0", "4711", "unload"}}, // another user
                                                     {"Uninstall", {"0", uid, "uninstall"}},
                                                     {"Uninstall", {"99999999999", uid, "uninstall"}},
                                                     {"Uninstall", {pid, "4711", "uninstall"}}};
    for (const auto& [tool, arguments] : cases) {
        EXPECT_TRUE(run(tool, arguments).starts_with(tool + ": usage: " + tool)) << arguments.size();
        EXPECT_EQ(status, 64);
    }
}

TEST_F(Programs, EnableAndDisableStartAndStopTheDaemonByTrampolineAndLink) {
    path = "/nowhere";
    EXPECT_EQ(run("Enable", {"0", uid, "load"}),
              "Enable: kelvane-local-daemon is neither beside this program nor in PATH\n");
    EXPECT_EQ(status, 69);
    path = DAEMON_FOLDER;
    for (const bool isEnabling : {true, true, false, false}) {
        EXPECT_EQ(isEnabling ? run("Enable", {"0", uid, "load"}) : run("Disable", {"0", uid, "unload"}), "");
        EXPECT_EQ(isServing(), isEnabling);
    }
}

TEST_F(Programs, ADaemonThatStartsAndNeverServesIsNotEnabled) {
    const std::string daemon = folder.writeProgram("bin/kelvane-local-daemon", "#!/bin/sh\n");
    const EnvironmentVariable places[] = {{"PATH", (folder / "bin:" + PANE_TOOLS).c_str()},
                                          {"XDG_RUNTIME_DIR", (folder / "run").c_str()}};
    EXPECT_EQ(tools::startLocalDaemon(std::chrono::milliseconds(100)),
              daemon + " was started, but nothing is listening at " + folder / "run/kelvane/daemon.sock");
}

TEST_F(Programs, ActOnTheDaemonThatIsNamedAndLeaveOthersAlone) {
    std::filesystem::create_directories(folder / "run");
    const std::string usual = folder / "run/kelvane/daemon.sock";
    EXPECT_EQ(run("Enable", {"0", uid, "load"}), "");
    daemonPath = folder / "named.sock";
    ChildProgram named({DAEMON_FOLDER + std::string("/kelvane-local-daemon"), "--home", folder / "home",
                        "--socket", daemonPath},
                       {"PATH=/usr/bin:/bin", "HOME=" + folder / "home", "XDG_CONFIG_HOME=" + folder / "2",
                        "XDG_STATE_HOME=" + folder / "2", "XDG_CACHE_HOME=" + folder / "2",
                        "XDG_RUNTIME_DIR=" + folder / "run2"});
    ASSERT_TRUE(runUntil([&] { return std::filesystem::exists(daemonPath); }));
    EXPECT_EQ(run("Enable", {"0", uid, "load"}), "") << "it serves";
    EXPECT_EQ(run("Disable", {"0", uid, "unload"}), "");
    EXPECT_EQ(named.finish().status, 0);
    EXPECT_TRUE(isServing()) << "the one at the usual place was not meant";
    EXPECT_TRUE(run("Enable", {"0", uid, "load"})
                    .starts_with("Enable: no daemon is listening at " + daemonPath + "; "));
    EXPECT_EQ(status, 69);
    EXPECT_FALSE(std::filesystem::exists(daemonPath));

    FakeDaemon other(daemonPath);
    ASSERT_TRUE(other.start());
    for (const auto& [tool, word] : {std::pair("Enable", "load"), {"Disable", "unload"}}) {
        EXPECT_TRUE(run(tool, {"0", uid, word})
                        .starts_with(tool + (": the daemon at " + daemonPath + " is not your local daemon")))
            << tool;
        EXPECT_EQ(status, 69);
    }
    EXPECT_EQ(other.callCount("terminate"), 0U);
    daemonPath.clear();
}

TEST_F(Programs, WhereThereIsAUserManagerTheDaemonIsAUnitOfIts) {
    const std::string odd = folder / "odd 50% \"x\"";
    std::filesystem::create_directory_symlink(DAEMON_FOLDER, odd);
    folder.write("run/systemd/private", "");
    folder.writeProgram("bin/systemctl", "#!/bin/sh\ncd '" + folder.path() +
                                             "'\necho \"$*\" >>orders\ncase \"$*\" in *'enable --now'*) "
                                             "kelvane-local-daemon </dev/null >/dev/null 2>&1 & esac\n");
    path = odd + ':' + folder / "bin" + ":/usr/bin:/bin";
    EXPECT_EQ(run("Enable", {"0", uid, "load"}), "");
    const Data packaged = readFile(KELVANE_UNIT, std::size_t{1} << 16U).bytes;
    std::string unit(packaged.begin(), packaged.end());
    unit.replace(unit.find("@program_folder@"), std::string("@program_folder@").size(),
                 folder / "odd 50%% \\\"x\\\"");
    EXPECT_EQ(folder.read("config/systemd/user/kelvane-local-daemon.service"), unit);
    EXPECT_EQ(run("Disable", {"0", uid, "unload"}), "");
    EXPECT_FALSE(isServing());
    EXPECT_EQ(folder.read("orders"), "--user --quiet daemon-reload\n"
                                     "--user --quiet enable --now kelvane-local-daemon.service\n"
                                     "--user --quiet disable --now kelvane-local-daemon.service\n");
    folder.write("bin/systemctl", "#!/bin/sh\nexit 5\n");
    EXPECT_EQ(run("Enable", {"0", uid, "load"}),
              "Enable: systemctl --user --quiet daemon-reload ended with status 5\n");
    std::filesystem::remove(folder / "run/systemd/private");
}

// What uninstalling removes, and what it keeps.
const std::set<std::string> gone{"config/com.kelvane.preferences.plist",
                                 "config/systemd/user/kelvane-local-daemon.service",
                                 "state/kelvane/local-daemon-state.plist",
                                 "state/kelvane/local-daemon-index-1",
                                 "state/kelvane/daemon.log",
                                 "state/kelvane/daemon.log.1",
                                 "cache/kelvane/restic/x/y"};
const std::set<std::string> kept{"config/kelvane/local-daemon.plist", "config/kelvane/local-daemon.password",
                                 "state/kelvane/backup/data", "home/letter"};

TEST_F(Programs, UninstallRemovesWhatIsTheUsersOnlyWithTheRight) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root, for a private polkitd that grants what it knows";
    const RightDefinition right{"com.kelvane.prefs.change", "Change what Kelvane backs up", "Test"};
    const std::string policy = policyFolder + ('/' + right.name + ".policy");
    const bool isOurs = !std::filesystem::exists(policy);
    ASSERT_EQ(isOurs ? installPolicy(right, policyFolder) : "", "");
    for (const auto& files : {gone, kept})
        for (const std::string& file : files)
            folder.write(file, "");
    const auto handOff = HandOffFile::create(folder / "auth");
    const auto uninstall = [&](const ProcessIdentity& process) {
        std::ranges::copy(authorizationForm(process), handOff->form().begin());
        static_cast<void>(run("Uninstall", {pid, uid, "uninstall", folder / "auth"}));
        EXPECT_EQ(handOff->completionWord(), status == 0 ? 1U : static_cast<unsigned>(status));
        return status;
    };
    const auto exists = [&](const std::string& file) { return std::filesystem::exists(folder / file); };

    const ProcessIdentity self = currentProcess().value();
    EXPECT_EQ(uninstall(self), 69); // no polkit
    const PrivatePolkit polkit;
    busAddress = polkit.address().toStdString();
    EXPECT_EQ(uninstall({1, 1, self.uid}), 77);
    EXPECT_NE(uninstall({self.pid, self.startTime + 1, self.uid}), 0); // an earlier process with this id
    EXPECT_TRUE(std::all_of(gone.begin(), gone.end(), exists));
    EXPECT_EQ(run("Enable", {"0", uid, "load"}), "");
    EXPECT_NE(folder.read("state/kelvane/daemon.log"), "") << "the daemon logs elsewhere";
    daemonPath = folder / "other.sock";
    EXPECT_EQ(uninstall(self), 71) << "the usual daemon runs";
    EXPECT_TRUE(std::all_of(gone.begin(), gone.end(), exists));
    daemonPath.clear();
    EXPECT_EQ(uninstall(self), 0);
    EXPECT_FALSE(isServing());
    EXPECT_TRUE(std::none_of(gone.begin(), gone.end(), exists));
    EXPECT_TRUE(std::all_of(kept.begin(), kept.end(), exists));
    if (isOurs)
        std::filesystem::remove(policy);
}

} // namespace
} // namespace kelvane::tests
