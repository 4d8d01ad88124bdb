#include "Platform/Desktop/Broadcast.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QProcess>
#include <gtest/gtest.h>

namespace kelvane {
namespace {

constexpr const char* notification = "com.kelvane.notify.defaultsPropertyChanged";
constexpr const char* sender = "com.kelvane.prefsPane";
constexpr int patience = 20'000; // milliseconds

// Another process on the bus, which the tests' launcher has started for them alone.
class Peer {
public:
    explicit Peer(const QStringList& arguments,
                  const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment()) {
        process_.setProcessEnvironment(environment);
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(BROADCAST_PEER, arguments);
    }
    ~Peer() {
        process_.closeWriteChannel();
        EXPECT_TRUE(process_.state() == QProcess::NotRunning || process_.waitForFinished(patience));
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    // Empty when none comes.
    std::string nextLine() {
        while (!process_.canReadLine())
            if (!process_.waitForReadyRead(patience))
                return {};
        return process_.readLine().trimmed().toStdString();
    }

private:
    QProcess process_;
};

void sendSignal(const char* path, const char* interface, const char* member, const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createSignal(path, interface, member);
    message.setArguments(arguments);
    EXPECT_TRUE(QDBusConnection::sessionBus().send(message));
}

TEST(Broadcast, IsHeardByAnotherProcessAndNothingElseIs) {
    Peer peer({"listen", notification});
    ASSERT_EQ(peer.nextLine(), "ready");
    const char* const path = "/com/kelvane/notify";
    const char* const interface = "com.kelvane.notify";
    const char* const member = "defaultsPropertyChanged";
    sendSignal(path, "com.kelvane.other", member, {"other interface"});
    sendSignal("/com/kelvane/other", interface, member, {"other path"});
    sendSignal(path, interface, "otherMember", {"other member"});
    sendSignal(path, interface, member, {});
    sendSignal(path, interface, member, {7});
    sendSignal(path, interface, member, {"one", "more"});
    EXPECT_EQ(postBroadcast(notification, sender), "");
    // The bus keeps their order: what must not be heard would have come first.
    EXPECT_EQ(peer.nextLine(), std::string("heard ") + sender);
    sendSignal(path, interface, member, {"as it stands on the bus"});
    EXPECT_EQ(peer.nextLine(), "heard as it stands on the bus");
}

TEST(Broadcast, ReachesEveryListenerUntilItEnds) {
    std::string heardFirst;
    std::string heardLast;
    std::unique_ptr<BroadcastListener> endsItself;
    endsItself = std::make_unique<BroadcastListener>(notification, [&](const std::string& from) {
        heardFirst += from + ' ';
        endsItself.reset();
    });
    const BroadcastListener last(notification, [&](const std::string& from) { heardLast += from + ' '; });
    Peer peer({"post", notification, "one"});
    EXPECT_EQ(peer.nextLine(), "posted");
    EXPECT_EQ(postBroadcast(notification, "two"), "");
    const QDeadlineTimer deadline(patience);
    while (heardLast != "one two " && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    EXPECT_EQ(heardLast, "one two ");
    EXPECT_EQ(heardFirst, "one ");
}

TEST(Broadcast, SaysWhyWithoutABus) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    Peer poster({"post", notification, sender}, environment);
    EXPECT_NE(poster.nextLine().find("/nonexistent/bus"), std::string::npos);
    Peer listener({"listen", notification}, environment);
    EXPECT_NE(listener.nextLine().find("/nonexistent/bus"), std::string::npos);
}

} // namespace
} // namespace kelvane
