#include "Platform/Desktop/SessionWatch.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QObject>
#include <QVariantMap>
#include <optional>

namespace kelvane {
namespace {

constexpr const char* login = "org.freedesktop.login1";
constexpr const char* session = "org.freedesktop.login1.Session";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* ownSession = "/org/freedesktop/login1/session/auto";

} // namespace

class SessionWatch::Receiver : public QObject {
    Q_OBJECT

public:
    explicit Receiver(Handler handler) : handler_(std::move(handler)) {
        // Subscribes to every session: this process's session is queried under an alias, not under its own
        // path.
        if (bus_.isConnected() && bus_.connect(login, {}, properties, "PropertiesChanged", this,
                                               SLOT(propertiesChanged(QString, QVariantMap, QStringList))))
            ask();
    }

    Q_SLOT void propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&) {
        if (interface == session && changed.contains("Active"))
            ask();
    }

private:
    void ask() {
        QDBusMessage question = QDBusMessage::createMethodCall(login, ownSession, properties, "Get");
        question << session << "Active";
        auto* const watcher = new QDBusPendingCallWatcher(bus_.asyncCall(question), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, &Receiver::answered);
    }

    void answered(QDBusPendingCallWatcher* watcher) {
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        watcher->deleteLater();
        if (reply.isError() || reply.value().variant().typeId() != QMetaType::Bool)
            return;
        const bool isActive = reply.value().variant().toBool();
        const bool isChange = isActive_ && *isActive_ != isActive;
        isActive_ = isActive;
        // A copy, because the handler may destroy the watch.
        if (const Handler handler = handler_; isChange)
            handler(isActive);
    }

    const Handler handler_;
    QDBusConnection bus_ = QDBusConnection::systemBus();
    std::optional<bool> isActive_;
};

SessionWatch::SessionWatch(Handler handler) : receiver_(std::make_unique<Receiver>(std::move(handler))) {}

// Qt removes the subscription with the receiver.
SessionWatch::~SessionWatch() = default;

} // namespace kelvane

#include "Platform/Desktop/SessionWatch.moc"
