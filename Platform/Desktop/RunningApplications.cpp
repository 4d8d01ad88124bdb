#include "Platform/Desktop/RunningApplications.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <QStringList>
#include <algorithm>

namespace kelvane {
namespace {

constexpr int answerTimeout = 2000; // in milliseconds

QString textOf(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

std::vector<std::string> runningApplications() {
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return {};
    const QDBusMessage question = QDBusMessage::createMethodCall(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames");
    const QDBusMessage answer = bus.call(question, QDBus::Block, answerTimeout);
    std::vector<std::string> identifiers;
    if (answer.type() != QDBusMessage::ReplyMessage || answer.signature() != "as")
        return identifiers;
    for (const QString& name : answer.arguments().constFirst().toStringList())
        if (!name.startsWith(':'))
            identifiers.push_back(name.toStdString());
    return identifiers;
}

bool isApplicationAmong(const std::vector<std::string>& identifiers, std::string_view identifier) {
    const QString wanted = textOf(identifier);
    return std::ranges::any_of(identifiers, [&](const std::string& each) {
        const QString name = textOf(each);
        return name.size() == wanted.size() && name.compare(wanted, Qt::CaseInsensitive) == 0;
    });
}

} // namespace kelvane
