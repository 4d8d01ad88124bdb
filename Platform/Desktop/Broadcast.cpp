#include "Platform/Desktop/Broadcast.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QObject>

namespace kelvane {
namespace {

constexpr int busTimeout = 2000; // in milliseconds

struct Signal {
    QString path;
    QString interface;
    QString member;
};

Signal signalNamed(const std::string& notification) {
    const QString name = QString::fromStdString(notification);
    const QString interface = name.section('.', 0, -2);
    return {'/' + QString(interface).replace('.', '/'), interface, name.section('.', -1)};
}

// The bus answers in order: this answer means that it has processed everything sent before.
std::string waitForBus(const QDBusConnection& bus) {
    const QDBusMessage question = QDBusMessage::createMethodCall(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId");
    const QDBusMessage answer = bus.call(question, QDBus::Block, busTimeout);
    if (answer.type() == QDBusMessage::ErrorMessage)
        return answer.errorMessage().toStdString();
    return {};
}

std::string reasonOf(const QDBusConnection& bus) {
    const std::string reason = bus.lastError().message().toStdString();
    return reason.empty() ? "no connection to the session bus" : reason;
}

} // namespace

std::string postBroadcast(const std::string& notification, const std::string& sender) {
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return reasonOf(bus);
    const Signal signal = signalNamed(notification);
    QDBusMessage message = QDBusMessage::createSignal(signal.path, signal.interface, signal.member);
    message << QString::fromStdString(sender);
    return bus.send(message) ? waitForBus(bus) : reasonOf(bus);
}

class BroadcastListener::Receiver : public QObject {
    Q_OBJECT

public:
    explicit Receiver(Handler handler) : handler_(std::move(handler)) {}

    Q_SLOT void received(const QDBusMessage& message) {
        if (message.signature() != "s")
            return;
        // A copy, because the handler may destroy the listener.
        const Handler handler = handler_;
        handler(message.arguments().constFirst().toString().toStdString());
    }

private:
    Handler handler_;
};

BroadcastListener::BroadcastListener(const std::string& notification, Handler handler)
    : receiver_(std::make_unique<Receiver>(std::move(handler))) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    const Signal signal = signalNamed(notification);
    const bool isSubscribed =
        bus.isConnected() && bus.connect({}, signal.path, signal.interface, signal.member, receiver_.get(),
                                         SLOT(received(QDBusMessage)));
    error_ = isSubscribed ? waitForBus(bus) : reasonOf(bus);
}

// Qt removes the subscription with the receiver.
BroadcastListener::~BroadcastListener() = default;

} // namespace kelvane

#include "Platform/Desktop/Broadcast.moc"
