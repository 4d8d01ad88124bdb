// The program itself, as a person or a service manager runs it.

#include "Tests/Harness/LinkPair.h"
#include "Tests/LocalDaemon/RunningDaemon.h"
#include "Tests/Tools/ChildProgram.h"

#include <csignal>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using tests::ChildProgram;
using tests::DaemonFolders;
using tests::eventually;
using tests::RawPeer;
using tests::TestPane;

class LocalDaemonProgram : public ::testing::Test {
protected:
    [[nodiscard]] std::unique_ptr<ChildProgram> start(const std::vector<std::string>& options) const {
        std::vector<std::string> words{KELVANE_LOCAL_DAEMON};
        words.insert(words.end(), options.begin(), options.end());
        return std::make_unique<ChildProgram>(words, std::vector<std::string>{"HOME=" + folders.home()});
    }
    [[nodiscard]] std::unique_ptr<ChildProgram> serve(const std::string& home) const {
        auto program = start({"--home", home, "--socket", folders.socket()});
        EXPECT_TRUE(eventually([this] { return RawPeer().connect(folders.socket()); }));
        return program;
    }

    const DaemonFolders folders;
};

TEST_F(LocalDaemonProgram, SaysHowItIsUsed) {
    const struct {
        std::vector<std::string> options;
        int status;
        const char* output;
        const char* error;
    } cases[] = {
        {{"--help"}, 0, "--socket PATH", ""},
        {{"--nonsense"}, 2, "", "--nonsense"},
        {{"--home"}, 2, "", "--home"},
        {{"--home", folders / "missing"}, 2, "", "missing"},
        {{"--socket", std::string(104, 'x')}, 1, "", "103"},
    };
    for (const auto& [options, status, output, error] : cases) {
        const ChildProgram::Result result = start(options)->finish();
        EXPECT_EQ(result.status, status) << options.front();
        EXPECT_NE(result.output.find(output), std::string::npos) << result.output;
        EXPECT_NE(result.errors.find(error), std::string::npos) << result.errors;
    }
}

// In the middle of a scan that takes long, and with panes that are connected.
TEST_F(LocalDaemonProgram, EndsCleanlyAndAtOnceOnASignal) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        const auto program = serve("/usr");
        TestPane pane(folders.socket());
        const RawPeer silent;
        ASSERT_TRUE(silent.connect(folders.socket()));
        EXPECT_EQ(pane.call<"serviceState">(), 7U);
        const auto sent = std::chrono::steady_clock::now();
        program->send(signal);
        EXPECT_EQ(program->finish().status, 0);
        EXPECT_LT(std::chrono::steady_clock::now() - sent, 2s);
        EXPECT_TRUE(std::filesystem::is_empty(folders / "run"));
    }
}

TEST_F(LocalDaemonProgram, ServesWhereNobodyElseDoes) {
    const auto first = serve(folders.home());
    struct stat status {};
    ASSERT_EQ(::stat((folders / "run").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    const auto second = start({"--socket", folders.socket()})->finish();
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.errors.find("already serves " + folders.socket()), std::string::npos) << second.errors;
    EXPECT_EQ(TestPane(folders.socket()).call<"serverURL">(), "localhost");

    const RawPeer stranger; // without a lock
    ASSERT_TRUE(stranger.listen(folders / "stranger"));
    EXPECT_EQ(start({"--socket", folders / "stranger"})->finish().status, 1);
    EXPECT_TRUE(RawPeer().connect(folders / "stranger"));

    folders.write("precious", "contents");
    EXPECT_EQ(start({"--socket", folders / "precious"})->finish().status, 1);
    EXPECT_EQ(folders.read("precious"), "contents");
}

TEST_F(LocalDaemonProgram, KeepsItsSettingsAndItsPlaceWhenItIsKilled) {
    folders.write("home/file", "1");
    const auto killed = serve(folders.home());
    {
        TestPane pane(folders.socket());
        pane.call<"setPausedMinutes:">(1440U);
        pane.call<"setAutomaticMode:">(false);
        pane.call<"setValueForProfileKey:withString:">("SkinId", "blue");
        ASSERT_FALSE(pane.call<"automaticMode">());
    }
    killed->send(SIGKILL);
    ASSERT_EQ(killed->finish().status, -1);
    ASSERT_TRUE(std::filesystem::exists(folders.socket()));

    const auto next = serve(folders.home());
    TestPane pane(folders.socket());
    EXPECT_NEAR(pane.call<"pausedMinutes">(), 1440U, 1U);
    EXPECT_EQ(pane.call<"serviceState">(), 13U);
    EXPECT_FALSE(pane.call<"automaticMode">());
    EXPECT_EQ(pane.call<"stringValueForProfileKey:">("SkinId"), "blue");
    pane.call<"terminate">();
    EXPECT_EQ(next->finish().status, 0);
    EXPECT_FALSE(std::filesystem::exists(folders.socket()));
}

} // namespace
} // namespace kelvane
