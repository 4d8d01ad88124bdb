#include "Platform/Desktop/PolkitAuthorization.h"
#include "Platform/Desktop/QtMainLoop.h"
#include "Tests/Desktop/FakeService.h"
#include "Tests/Harness/RunUntil.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <gtest/gtest.h>
#include <unistd.h>

namespace kelvane {
namespace {

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
    void authorizationDidAuthorize() override { words += "authorized "; }
    void authorizationDidDeauthorize() override { words += "deauthorized "; }
    void authorizationAskingChanged() override {}

    std::string words;
};

// polkit, whose temporary authorizations end when the test says so.
class TemporaryAuthority : public testing::Test {
protected:
    QDBusMessage answer(const QDBusMessage& call) {
        calls += call.member().toStdString() + ' ';
        if (call.member() != "CheckAuthorization")
            return call.createReply();
        QDBusArgument result;
        result.beginStructure();
        result << isAuthorized << false
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
    lookUp(); // its answer comes after the change
    lookUp(); // and this one after what the change has done
    EXPECT_EQ(calls, callsBefore + "EnumerateActions EnumerateActions ");
    EXPECT_EQ(authorization.state(), Authorization::State::Locked);
}

} // namespace
} // namespace kelvane
