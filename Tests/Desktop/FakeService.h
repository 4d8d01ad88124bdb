#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <functional>
#include <gtest/gtest.h>

namespace kelvane::tests {

// A service on a bus, by default the system bus of the tests, that passes every call to one function. It has
// a separate connection, like another process.
class FakeService : public QDBusVirtualObject {
public:
    // An empty result sends no reply.
    using Answer = std::function<QDBusMessage(const QDBusMessage& call)>;

    FakeService(const QString& name, Answer answer,
                const QString& address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"))
        : name_(name), answer_(std::move(answer)), bus_(QDBusConnection::connectToBus(address, name)) {
        EXPECT_TRUE(bus_.registerVirtualObject("/", this, QDBusConnection::SubPath));
        EXPECT_TRUE(bus_.registerService(name));
    }
    ~FakeService() override { QDBusConnection::disconnectFromBus(name_); }

    void emitSignal(const QString& path, const QString& interface, const QString& member,
                    const QVariantList& arguments = {}) {
        QDBusMessage signal = QDBusMessage::createSignal(path, interface, member);
        signal.setArguments(arguments);
        send(signal);
    }
    // For example a delayed reply.
    void send(const QDBusMessage& message) { EXPECT_TRUE(bus_.send(message)); }

    [[nodiscard]] QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override {
        const QDBusMessage reply = answer_(call);
        if (reply.type() == QDBusMessage::InvalidMessage)
            call.setDelayedReply(true);
        return reply.type() == QDBusMessage::InvalidMessage || bus.send(reply);
    }

private:
    const QString name_;
    const Answer answer_;
    QDBusConnection bus_;
};

} // namespace kelvane::tests
