#include "Platform/Desktop/Authorization/PolicyFile.h"
#include "Platform/Desktop/Authorization/PolkitAuthorization.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "Tests/Desktop/FakeService.h"
#include "Tests/Desktop/PrivatePolkit.h"
#include "Tests/Harness/RunUntil.h"

#include <QDBusMetaType>
#include <unistd.h>
#include <utility>

namespace kelvane {
namespace {

using tests::processTimeout;
using Answer = tests::ScriptedAgent::Answer;

const RightDefinition right{"com.kelvane.test.change", "Change the test", "The test asks <you> & others"};
constexpr const char* otherUser = "65534";

// A process that requests the right.
class Peer {
public:
    // Runs as a user other than root, to whom polkit grants everything.
    explicit Peer(const tests::PrivatePolkit& polkit, const QStringList& arguments = {})
        : Peer(polkit.address(), "setpriv",
               QStringList{"--reuid", otherUser, "--regid", otherUser, "--clear-groups",
                           polkit.copyOf(AUTHORIZATION_PEER)} +
                   arguments) {}
    Peer(const QString& busAddress, const QString& program, const QStringList& arguments) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", busAddress);
        process_.setProcessEnvironment(environment);
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(program, arguments);
    }
    ~Peer() {
        process_.closeWriteChannel();
        EXPECT_TRUE(process_.state() == QProcess::NotRunning || process_.waitForFinished(processTimeout));
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void say(const char* word) { process_.write(QByteArray(word) + '\n'); }
    // The agent is in this process, so its events are processed while waiting for the line.
    std::string nextLine() {
        EXPECT_TRUE(tests::runUntil([this] { return process_.canReadLine(); }));
        return process_.readLine().trimmed().toStdString();
    }
    std::string ask(const char* word) {
        say(word);
        return nextLine();
    }
    std::string lines(int count) {
        std::string lines;
        for (int i = 0; i < count; ++i)
            lines += (i == 0 ? "" : ", ") + nextLine();
        return lines;
    }

private:
    QProcess process_;
};

TEST(PolkitWithoutABus, IsLockedAndSaysWhy) {
    Peer peer("unix:path=/nonexistent/bus", AUTHORIZATION_PEER, {});
    EXPECT_NE(peer.nextLine(), "");
    EXPECT_EQ(peer.ask("look-up"), "unreachable");
    EXPECT_EQ(peer.ask("follow"), "deauthorized");
    peer.say("unlock");
    EXPECT_EQ(peer.lines(2), "asking, asked");
    EXPECT_NE(peer.nextLine().find("no system bus"), std::string::npos);
    EXPECT_EQ(Peer("unix:path=/nonexistent/bus", AUTHORIZATION_PEER, {"1", "1", "0"}).nextLine(),
              "unreachable");
}

class Polkit : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0)
            GTEST_SKIP() << "needs root, for a private polkitd and for processes of another user";
        ASSERT_EQ(installPolicy(right, policyFolder), "");
        polkit = std::make_unique<tests::PrivatePolkit>();
        peer = std::make_unique<Peer>(*polkit);
        const QStringList words = QString::fromStdString(peer->nextLine()).split(' ');
        ASSERT_EQ(words.size(), 3);
        process = words;
        polkit->registerAgent(words[0].toUInt(), words[1].toULongLong(), words[2].toUInt());
    }
    void TearDown() override {
        peer.reset();
        polkit.reset();
        removePolicy();
    }
    static void removePolicy() {
        std::error_code ignored; // missing in a skipped test
        std::filesystem::remove(policyFolder + ('/' + right.name + ".policy"), ignored);
    }
    void unlock() const {
        peer->say("unlock");
        EXPECT_EQ(peer->lines(4), "asking, authorized, asked, granted");
    }
    // Returns polkit's answer about the peer to another program of the same user.
    std::string checkedFromOutside() { return Peer(*polkit, process).nextLine(); }

    std::unique_ptr<tests::PrivatePolkit> polkit;
    std::unique_ptr<Peer> peer;
    QStringList process;
};

TEST_F(Polkit, UnlocksWithAnApprovingAgentAndLocksAgain) {
    EXPECT_EQ(peer->ask("follow"), "deauthorized");
    EXPECT_EQ(checkedFromOutside(), "refused");
    unlock();
    EXPECT_EQ(polkit->agent.message.toStdString(), right.message);
    EXPECT_EQ(checkedFromOutside(), "granted");
    EXPECT_EQ(peer->ask("lock"), "deauthorized");
    EXPECT_EQ(peer->ask("look-up"), "exists");
    unlock();
}

TEST_F(Polkit, StaysLockedWhenTheAgentCancelsOrNobodyAnswers) {
    EXPECT_EQ(peer->ask("follow"), "deauthorized");
    polkit->agent.answer = Answer::Cancel;
    peer->say("unlock");
    EXPECT_EQ(peer->lines(3), "asking, asked, not granted");
    polkit->agent.answer = Answer::None;
    EXPECT_EQ(peer->ask("unlock"), "asking");
    EXPECT_EQ(peer->ask("look-up"), "exists"); // the query needs no user
    peer->say("unlock");
    peer->say("cancel");
    EXPECT_EQ(peer->lines(3), "asked, not granted, not granted");
    EXPECT_TRUE(tests::runUntil([this] { return polkit->agent.withdrawnCount > 0; }));
    polkit->agent.answer = Answer::Approve;
    unlock();
}

TEST_F(Polkit, LocksWhenTheAuthorityGoesAndComesBackWithoutIt) {
    peer->say("follow");
    unlock();
    polkit->stopAuthority();
    EXPECT_EQ(peer->nextLine(), "deauthorized");
    EXPECT_EQ(peer->ask("look-up"), "unreachable");
    EXPECT_EQ(checkedFromOutside(), "unreachable");
    polkit->startAuthority();
    peer->say("unlock"); // no agent is registered for it
    EXPECT_EQ(peer->lines(2), "asking, asked");
    EXPECT_NE(peer->nextLine().find("nobody asks"), std::string::npos);
}

TEST_F(Polkit, LocksWhenTheBusGoes) {
    unlock();
    peer->say("follow");
    polkit->stopBus();
    EXPECT_EQ(peer->nextLine(), "deauthorized");
}

TEST_F(Polkit, KnowsARightFromTheMomentItsFileIsThere) {
    removePolicy();
    EXPECT_TRUE(tests::runUntil([this] { return peer->ask("look-up") == "absent"; }));
    EXPECT_EQ(peer->ask("create"), "not created"); // not by this user
    EXPECT_EQ(peer->ask("follow"), "deauthorized");
    ASSERT_EQ(installPolicy(right, policyFolder), "");
    EXPECT_TRUE(tests::runUntil([this] { return peer->ask("look-up") == "exists"; }));
    unlock();
}

TEST(AuthorizationForm, HasItsBytesAndTakesNoOthers) {
    const ProcessIdentity process{0x01020304, 0x1112131415161718, 0x21222324};
    AuthorizationForm form = authorizationForm(process);
    const AuthorizationForm bytes{4,    3,    2,    1,    0x18, 0x17, 0x16, 0x15,
                                  0x14, 0x13, 0x12, 0x11, 0x24, 0x23, 0x22, 0x21};
    EXPECT_EQ(form, bytes);
    EXPECT_EQ(processOfForm(form), process);
    EXPECT_FALSE(processOfForm(std::span(form).first(31)));
    EXPECT_FALSE(processOfForm(AuthorizationForm{}));
    EXPECT_FALSE(processOfForm(authorizationForm({1, 0, 0})));
    form.back() = 1;
    EXPECT_FALSE(processOfForm(form));
    const auto self = currentProcess();
    ASSERT_TRUE(self);
    EXPECT_EQ(self->pid, static_cast<std::uint32_t>(::getpid()));
    EXPECT_GT(self->startTime, 0U);
}

// Records its notifications.
struct Heard : AuthorizationDelegate {
    void authorizationDidAuthorize() override { words += "authorized "; }
    void authorizationDidDeauthorize() override { words += "deauthorized "; }
    void authorizationAskingChanged() override {}

    std::string words;
};

// A polkit whose temporary authorizations end on the test's command.
class TemporaryAuthority : public testing::Test {
protected:
    QDBusMessage answer(const QDBusMessage& call) {
        calls += call.member().toStdString() + ' ';
        if (call.member() != "CheckAuthorization")
            return call.createReply();
        const bool isGiven = isAuthorized;
        if (const auto happen = std::exchange(meanwhile, {}))
            happen();
        QDBusArgument result;
        result.beginStructure();
        result << isGiven << false
               << QMap<QString, QString>{{"polkit.temporary_authorization_id", "tmpauthz7"}};
        result.endStructure();
        return call.createReply(QVariant::fromValue(result));
    }
    void change() {
        service.emitSignal("/org/freedesktop/PolicyKit1/Authority", "org.freedesktop.PolicyKit1.Authority",
                           "Changed");
    }
    void lookUp() {
        bool isAnswered = false;
        authorization.lookUpRight([&](auto) { isAnswered = true; });
        EXPECT_TRUE(tests::runUntil([&] { return isAnswered; }));
    }

    static void SetUpTestSuite() { qDBusRegisterMetaType<QMap<QString, QString>>(); }

    bool isAuthorized = true;
    std::function<void()> meanwhile; // runs once before the next answer is sent
    std::string calls;
    tests::FakeService service{"org.freedesktop.PolicyKit1",
                               [this](const auto& call) { return answer(call); }};
    Heard heard;
    PolkitAuthorization authorization{std::make_shared<QtMainLoop>(), {"com.kelvane.test", "", ""}};
};

TEST_F(TemporaryAuthority, IsFollowedUntilTheUserLocks) {
    authorization.setDelegate(&heard);
    authorization.startUpdating();
    EXPECT_TRUE(tests::runUntil([&] { return heard.words == "authorized "; }));
    isAuthorized = false;
    change();
    EXPECT_TRUE(tests::runUntil([&] { return heard.words == "authorized deauthorized "; }));
    isAuthorized = true;
    change();
    EXPECT_TRUE(tests::runUntil([&] { return heard.words == "authorized deauthorized authorized "; }));
    authorization.lock();
    EXPECT_TRUE(tests::runUntil([&] { return calls.ends_with("RevokeTemporaryAuthorizationById "); }));
    const std::string callsBefore = calls;
    change();
    lookUp(); // its answer arrives after the change
    lookUp(); // and this one after the effects of the change
    EXPECT_EQ(calls, callsBefore + "EnumerateActions EnumerateActions ");
    EXPECT_EQ(authorization.state(), Authorization::State::Locked);
}

TEST_F(TemporaryAuthority, IsAskedAgainWhenItChangesWhileItIsAsked) {
    meanwhile = [this] {
        isAuthorized = false;
        change();
    };
    authorization.setDelegate(&heard);
    authorization.startUpdating();
    EXPECT_TRUE(tests::runUntil([&] { return heard.words == "authorized deauthorized "; })) << heard.words;
}

} // namespace
} // namespace kelvane
