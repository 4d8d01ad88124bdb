#include "Platform/Desktop/PolicyFile.h"
#include "Platform/Desktop/PolkitAuthorization.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "Tests/Desktop/FakeService.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <gtest/gtest.h>
#include <unistd.h>

namespace kelvane {
namespace {

using State = Authorization::State;

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

// Writes down what it hears.
struct Heard : AuthorizationDelegate {
    explicit Heard(Authorization& authorization) : source(authorization) { source.setDelegate(this); }
    ~Heard() override { source.setDelegate(nullptr); }
    void authorizationDidAuthorize() override { words += "authorized "; }
    void authorizationDidDeauthorize() override { words += "deauthorized "; }
    void authorizationAskingChanged() override { words += source.isAsking() ? "asking " : "asked "; }

    Authorization& source;
    std::string words;
};

TEST(FixedAuthorization, AnswersFromTheLoopAndCanBeLockedAndCancelled) {
    const auto loop = std::make_shared<QtMainLoop>();
    for (const bool isGranted : {true, false}) {
        const auto choice = isGranted ? AuthorizationChoice::Granted : AuthorizationChoice::Denied;
        const auto authorization = makeAuthorization(choice, loop, {});
        Heard heard(*authorization);
        authorization->startUpdating();
        EXPECT_EQ(authorization->state(), State::Unknown);
        EXPECT_TRUE(tests::runUntil([&] { return authorization->state() != State::Unknown; }));
        authorization->lock();
        EXPECT_EQ(unlockAndWait(*authorization), isGranted);
        bool isCancelled = false;
        authorization->lock();
        authorization->unlock([&](bool granted) { isCancelled = !granted; });
        authorization->cancelUnlock();
        EXPECT_TRUE(tests::runUntil([&] { return isCancelled; }));
        EXPECT_EQ(heard.words, isGranted ? "authorized asking deauthorized authorized asked asking "
                                           "deauthorized asked "
                                         : "deauthorized asking asked asking asked ");
    }
}

TEST(FixedAuthorization, EndsItsWaitWhenWhoIsToldDropsIt) {
    auto authorization = makeAuthorization(AuthorizationChoice::Granted, std::make_shared<QtMainLoop>(), {});
    struct Dropper : AuthorizationDelegate {
        explicit Dropper(std::unique_ptr<Authorization>& what) : target(what) {}
        void authorizationDidAuthorize() override { target.reset(); }
        void authorizationDidDeauthorize() override {}
        void authorizationAskingChanged() override {}
        std::unique_ptr<Authorization>& target;
    } dropper(authorization);
    authorization->setDelegate(&dropper);
    EXPECT_FALSE(unlockAndWait(*authorization));
    EXPECT_EQ(authorization, nullptr);
}

TEST(PolicyFile, KeepsItsTextsWhole) {
    const tests::TemporaryFolder folder;
    const RightDefinition right{"com.kelvane.test", "a & <b> ]]> \xC3\xA9", "\"m\""};
    EXPECT_EQ(installPolicy(right, folder.path()), "");
    const std::string text = folder.read("com.kelvane.test.policy");
    EXPECT_NE(text.find("<description><![CDATA[a & <b> ]]]]><![CDATA[> \xC3\xA9]]></description>"),
              std::string::npos);
    EXPECT_NE(text.find("<message><![CDATA[\"m\"]]></message>"), std::string::npos);
    EXPECT_NE(installPolicy(right, folder / "missing"), "");
}

// polkit as it might be and never should.
class StrangeAuthority : public testing::Test {
protected:
    QDBusMessage answer(const QDBusMessage& call) {
        calls += call.member().toStdString() + ' ';
        if (call.member() == "RevokeTemporaryAuthorizationById")
            revoked = call.arguments().constFirst().toString();
        if (call.member() != "CheckAuthorization")
            return call.createReply();
        return check ? check(call) : QDBusMessage();
    }
    static QDBusMessage answered(const QDBusMessage& call, bool isAuthorized) {
        QDBusArgument result;
        result.beginStructure();
        result << isAuthorized << false
               << QMap<QString, QString>{{"polkit.temporary_authorization_id", "tmpauthz7"}};
        result.endStructure();
        return call.createReply(QVariant::fromValue(result));
    }

    void lookUp() {
        bool isAnswered = false;
        authorization.lookUpRight([&](auto) { isAnswered = true; });
        EXPECT_TRUE(tests::runUntil([&] { return isAnswered; }));
    }

    static void SetUpTestSuite() { qDBusRegisterMetaType<QMap<QString, QString>>(); }

    std::function<QDBusMessage(const QDBusMessage&)> check;
    std::string calls;
    QString revoked;
    tests::FakeService service{"org.freedesktop.PolicyKit1",
                               [this](const auto& call) { return answer(call); }};
    PolkitAuthorization authorization{std::make_shared<QtMainLoop>(), {"com.kelvane.test", "", ""}};
    Heard heard{authorization};
};

TEST_F(StrangeAuthority, LocksWhenItsAnswerHasAnotherForm) {
    for (const QVariantList& words : {QVariantList{}, QVariantList{true}, QVariantList{"yes", 1}}) {
        check = [&](const QDBusMessage& call) { return call.createReply(words); };
        heard.words.clear();
        EXPECT_FALSE(unlockAndWait(authorization));
        EXPECT_EQ(authorization.state(), State::Locked);
        EXPECT_NE(authorization.problem().detail.find("another form"), std::string::npos);
    }
}

TEST_F(StrangeAuthority, WhatItDoesNotAnswerIsCancelledAtOnceAndAnsweredInVainLater) {
    QDBusMessage held;
    check = [&](const QDBusMessage& call) {
        held = call;
        return QDBusMessage();
    };
    bool isOver = false;
    authorization.unlock([&](bool granted) { isOver = !granted; });
    EXPECT_TRUE(tests::runUntil([&] { return calls == "CheckAuthorization "; }));
    authorization.cancelUnlock();
    EXPECT_TRUE(tests::runUntil([&] { return isOver && calls.ends_with("CancelCheckAuthorization "); }));
    EXPECT_FALSE(authorization.isAsking());
    service.send(answered(held, true));
    lookUp();
    EXPECT_EQ(heard.words, "asking asked ");
    EXPECT_FALSE(authorization.problem());
}

TEST_F(StrangeAuthority, FollowsItsChangesUntilTheUserLocks) {
    bool isAuthorized = true;
    check = [&](const QDBusMessage& call) { return answered(call, isAuthorized); };
    const auto changed = [&] {
        service.emitSignal("/org/freedesktop/PolicyKit1/Authority", "org.freedesktop.PolicyKit1.Authority",
                           "Changed");
    };
    authorization.startUpdating();
    EXPECT_TRUE(tests::runUntil([&] { return heard.words == "authorized "; }));
    isAuthorized = false; // the time of a temporary authorization is over
    changed();
    EXPECT_TRUE(tests::runUntil([&] { return heard.words == "authorized deauthorized "; }));
    isAuthorized = true;
    changed();
    EXPECT_TRUE(tests::runUntil([&] { return heard.words == "authorized deauthorized authorized "; }));
    authorization.lock();
    EXPECT_TRUE(tests::runUntil([&] { return revoked == "tmpauthz7"; }));
    const std::string callsBefore = calls;
    changed();
    lookUp(); // its answer comes after the change
    lookUp(); // and this one after what the change has done
    EXPECT_EQ(calls, callsBefore + "EnumerateActions EnumerateActions ");
    EXPECT_EQ(authorization.state(), State::Locked);
}

} // namespace
} // namespace kelvane
