#include "Host/Appearance/SystemAppearance.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <optional>

namespace kelvane::host {
namespace {

constexpr const char* service = "org.freedesktop.portal.Desktop";
constexpr const char* path = "/org/freedesktop/portal/desktop";
constexpr const char* interface = "org.freedesktop.portal.Settings";
constexpr const char* group = "org.freedesktop.appearance";
constexpr const char* key = "color-scheme";
constexpr uint preferDark = 1;

// The portal wraps each value in a variant, and each answer in another one.
std::optional<bool> wantsDark(QVariant value) {
    while (value.canConvert<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value.typeId() == QMetaType::UInt ? std::optional(value.toUInt() == preferDark) : std::nullopt;
}

} // namespace

SystemAppearance::SystemAppearance(std::function<void(bool wantsDark)> handler)
    : handler_(std::move(handler)) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(service, path, interface, "SettingChanged", this, SLOT(settingChanged(QDBusMessage)));
    QDBusMessage question = QDBusMessage::createMethodCall(service, path, interface, "Read");
    question << group << key;
    auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(question), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusMessage answer = watcher->reply();
        if (answer.type() == QDBusMessage::ReplyMessage && answer.arguments().size() == 1)
            if (const auto dark = wantsDark(answer.arguments().constFirst()))
                handler_(*dark);
    });
}

void SystemAppearance::settingChanged(const QDBusMessage& message) {
    const QVariantList words = message.arguments();
    if (words.size() == 3 && words[0] == group && words[1] == key)
        if (const auto dark = wantsDark(words[2]))
            handler_(*dark);
}

} // namespace kelvane::host
