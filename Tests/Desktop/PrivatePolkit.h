#pragma once

#include "Tests/Harness/TemporaryFolder.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QDeadlineTimer>
#include <QProcess>
#include <QVariantMap>
#include <gtest/gtest.h>

namespace kelvane::tests {

inline constexpr int processTimeout = 20'000; // milliseconds

// A subject or identity of polkit (sa{sv}).
inline QVariant polkitPair(const QString& kind, const QVariantMap& details) {
    QDBusArgument pair;
    pair.beginStructure();
    pair << kind << details;
    pair.endStructure();
    return QVariant::fromValue(pair);
}

inline QDBusMessage authorityCall(const char* method) {
    return QDBusMessage::createMethodCall("org.freedesktop.PolicyKit1",
                                          "/org/freedesktop/PolicyKit1/Authority",
                                          "org.freedesktop.PolicyKit1.Authority", method);
}

// An authentication agent with a predefined answer instead of a password dialog. Runs as root, like the
// setuid program that checks passwords.
class ScriptedAgent : public QDBusVirtualObject {
public:
    enum class Answer { Approve, Cancel, None };

    Answer answer = Answer::Approve;
    int withdrawnCount = 0;
    QString message;

    [[nodiscard]] QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override {
        call.setDelayedReply(true);
        if (call.member() == "CancelAuthentication") {
            ++withdrawnCount;
            return bus.send(call.createReply());
        }
        message = call.arguments().at(1).toString();
        if (answer == Answer::None)
            return true;
        if (answer == Answer::Cancel)
            return bus.send(call.createErrorReply("org.freedesktop.PolicyKit1.Error.Cancelled", "no"));
        QDBusMessage response = authorityCall("AuthenticationAgentResponse2");
        response << 0U << call.arguments().at(4) << firstIdentity(call.arguments().at(5));
        const QDBusMessage reply = bus.call(response);
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return bus.send(call.createReply());
    }

private:
    static QVariant firstIdentity(const QVariant& identities) {
        const auto list = identities.value<QDBusArgument>();
        QString kind;
        QVariantMap details;
        list.beginArray();
        list.beginStructure();
        list >> kind >> details;
        list.endStructure();
        list.endArray();
        return polkitPair(kind, details);
    }
};

// A private system bus with the real polkitd, which knows the actions installed on this machine. Needs root.
class PrivatePolkit {
public:
    PrivatePolkit() {
        std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
        folder_.write("bus.conf", "<busconfig><type>system</type><listen>unix:path=" + (folder_ / "bus") +
                                      "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                      "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                                      "<allow own=\"*\"/><allow user=\"*\"/></policy></busconfig>");
        start(bus_, "dbus-daemon",
              {"--nofork", "--print-address", "--config-file", QString::fromStdString(folder_ / "bus.conf")});
        EXPECT_TRUE(bus_.waitForReadyRead(processTimeout));
        connection_ = QDBusConnection::connectToBus(address(), "private-polkit");
        startAuthority();
        EXPECT_TRUE(connection_.registerVirtualObject("/agent", &agent));
    }
    ~PrivatePolkit() {
        QDBusConnection::disconnectFromBus("private-polkit");
        stop(authority_);
        stop(bus_);
    }
    PrivatePolkit(const PrivatePolkit&) = delete;
    PrivatePolkit& operator=(const PrivatePolkit&) = delete;

    [[nodiscard]] QString address() const { return "unix:path=" + QString::fromStdString(folder_ / "bus"); }
    // Returns a copy of the program that another user can start.
    [[nodiscard]] QString copyOf(const std::filesystem::path& program) const {
        const std::filesystem::path copy = folder_ / program.filename().string();
        std::filesystem::copy_file(program, copy, std::filesystem::copy_options::skip_existing);
        return QString::fromStdString(copy);
    }

    // Registers the agent for that process.
    void registerAgent(uint pid, qulonglong startTime, uint uid) {
        QDBusMessage call = authorityCall("RegisterAuthenticationAgent");
        call << polkitPair("unix-process", {{"pid", pid}, {"start-time", startTime}, {"uid", int(uid)}})
             << "en_US.UTF-8"
             << "/agent";
        const QDBusMessage reply = connection_.call(call);
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }
    void startAuthority() {
        start(authority_, "/usr/lib/polkit-1/polkitd", {"--no-debug"});
        const QDeadlineTimer deadline(processTimeout);
        while (!connection_.interface()->isServiceRegistered("org.freedesktop.PolicyKit1"))
            ASSERT_FALSE(deadline.hasExpired() || authority_.waitForFinished(10)) << "polkitd does not start";
    }
    void stopAuthority() { stop(authority_); }
    void stopBus() { stop(bus_); }

    ScriptedAgent agent;

private:
    void start(QProcess& process, const QString& program, const QStringList& arguments) const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address());
        process.setProcessEnvironment(environment);
        process.start(program, arguments);
        EXPECT_TRUE(process.waitForStarted(processTimeout)) << process.errorString().toStdString();
    }
    static void stop(QProcess& process) {
        process.terminate();
        EXPECT_TRUE(process.state() == QProcess::NotRunning || process.waitForFinished(processTimeout));
    }

    const TemporaryFolder folder_;
    QProcess bus_;
    QProcess authority_;
    QDBusConnection connection_{QString()};
};

} // namespace kelvane::tests
