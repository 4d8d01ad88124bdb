#include "Platform/Desktop/Authorization/PolkitAuthority.h"

#include <QDBusArgument>
#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QVariantMap>

namespace kelvane {
namespace {

constexpr const char* service = "org.freedesktop.PolicyKit1";
constexpr const char* path = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* interface = "org.freedesktop.PolicyKit1.Authority";

QDBusMessage methodCall(const char* method) {
    return QDBusMessage::createMethodCall(service, path, interface, method);
}

QVariant subjectOf(const ProcessIdentity& process) {
    QDBusArgument subject;
    subject.beginStructure();
    subject << QString("unix-process")
            << QVariantMap{{"pid", QVariant::fromValue<uint>(process.pid)},
                           {"start-time", QVariant::fromValue<qulonglong>(process.startTime)},
                           {"uid", QVariant::fromValue<int>(static_cast<int>(process.uid))}};
    subject.endStructure();
    return QVariant::fromValue(subject);
}

QVariant noDetails() {
    QDBusArgument details;
    details.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
    details.endMap();
    return QVariant::fromValue(details);
}

QDBusMessage messageOf(const PolkitAuthority::Question& question) {
    QDBusMessage message = methodCall("CheckAuthorization");
    message << subjectOf(question.process) << QString::fromStdString(question.right) << noDetails()
            << static_cast<uint>(question.interaction) << QString::fromStdString(question.cancellation);
    return message;
}

// Empty when the answer has the expected signature.
std::string errorOf(const QDBusMessage& answer, const char* signature) {
    if (answer.type() == QDBusMessage::ErrorMessage) {
        const std::string text = answer.errorMessage().toStdString();
        return text.empty() ? answer.errorName().toStdString() : text;
    }
    return answer.signature() == signature ? "" : "the answer has an unexpected type";
}

PolkitAnswer answerFrom(const QDBusMessage& message) {
    PolkitAnswer answer;
    answer.error = errorOf(message, "(bba{ss})");
    if (!answer.error.empty())
        return answer;
    const auto result = message.arguments().constFirst().value<QDBusArgument>();
    QMap<QString, QString> details;
    result.beginStructure();
    result >> answer.isAuthorized >> answer.isChallenge >> details;
    result.endStructure();
    answer.isDismissed = !details.value("polkit.dismissed").isEmpty();
    answer.temporaryAuthorization = details.value("polkit.temporary_authorization_id").toStdString();
    return answer;
}

std::vector<std::string> rightsFrom(const QDBusMessage& message) {
    std::vector<std::string> rights;
    const auto actions = message.arguments().constFirst().value<QDBusArgument>();
    actions.beginArray();
    while (!actions.atEnd()) {
        QString name;
        actions.beginStructure();
        actions >> name;
        actions.endStructure();
        rights.push_back(name.toStdString());
    }
    actions.endArray();
    return rights;
}

int milliseconds(std::chrono::milliseconds timeout) {
    return static_cast<int>(timeout.count());
}

} // namespace

PolkitAuthority::PolkitAuthority(std::function<void()> changed)
    : changed_(std::move(changed)),
      connectionName_(QString("kelvane-authorization-%1").arg(reinterpret_cast<quintptr>(this))),
      bus_(QDBusConnection::connectToBus(QDBusConnection::SystemBus, connectionName_)) {}

PolkitAuthority::~PolkitAuthority() {
    QDBusConnection::disconnectFromBus(connectionName_);
}

void PolkitAuthority::check(const Question& question, std::function<void(const PolkitAnswer&)> completion) {
    call(messageOf(question), question.timeout,
         [completion = std::move(completion)](const auto& answer) { completion(answerFrom(answer)); });
}

void PolkitAuthority::cancel(const std::string& cancellation) {
    QDBusMessage message = methodCall("CancelCheckAuthorization");
    message << QString::fromStdString(cancellation);
    bus().send(message);
}

void PolkitAuthority::revoke(const std::string& temporaryAuthorization,
                             std::function<void(std::string)> completion) {
    QDBusMessage message = methodCall("RevokeTemporaryAuthorizationById");
    message << QString::fromStdString(temporaryAuthorization);
    call(message, Authorization::authorityTimeout,
         [completion = std::move(completion)](const auto& answer) { completion(errorOf(answer, "")); });
}

void PolkitAuthority::enumerateRights(
    std::function<void(std::optional<std::vector<std::string>>)> completion) {
    QDBusMessage message = methodCall("EnumerateActions");
    message << QString();
    call(message, Authorization::authorityTimeout, [completion = std::move(completion)](const auto& answer) {
        if (errorOf(answer, "a(ssssssuuua{ss})").empty())
            completion(rightsFrom(answer));
        else
            completion(std::nullopt);
    });
}

PolkitAnswer PolkitAuthority::checkNow(const Question& question) {
    PolkitAuthority authority([] {});
    return answerFrom(
        authority.bus().call(messageOf(question), QDBus::Block, milliseconds(question.timeout)));
}

void PolkitAuthority::authorityChanged() {
    // A copy, because the callback may destroy this object.
    const auto changed = changed_;
    changed();
}

QDBusConnection& PolkitAuthority::bus() {
    if (bus_.isConnected() && isSubscribed_)
        return bus_;
    if (!bus_.isConnected()) {
        QDBusConnection::disconnectFromBus(connectionName_);
        bus_ = QDBusConnection::connectToBus(QDBusConnection::SystemBus, connectionName_);
    }
    isSubscribed_ = bus_.isConnected() && subscribe();
    return bus_;
}

bool PolkitAuthority::subscribe() {
    constexpr const char* busName = "org.freedesktop.DBus";
    constexpr const char* busPath = "/org/freedesktop/DBus";
    const char* const slot = SLOT(authorityChanged());
    bus_.connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected", this, slot);
    bus_.connect(busName, busPath, busName, "NameOwnerChanged", QStringList{service}, {}, this, slot);
    return bus_.connect(service, path, interface, "Changed", this, slot);
}

void PolkitAuthority::call(const QDBusMessage& message, std::chrono::milliseconds timeout,
                           std::function<void(const QDBusMessage&)> completion) {
    // A call on a lost connection never finishes by itself.
    const QDBusPendingCall pending =
        bus().isConnected()
            ? bus_.asyncCall(message, milliseconds(timeout))
            : QDBusPendingCall::fromError(QDBusError(QDBusError::Disconnected, "no system bus"));
    auto* const watcher = new QDBusPendingCallWatcher(pending, this);
    const auto finished = [completion = std::move(completion)](QDBusPendingCallWatcher* call) {
        const QDBusMessage answer = call->reply();
        call->deleteLater();
        // A copy, because the completion may destroy this object, and the watcher with it.
        const auto last = completion;
        last(answer);
    };
    connect(watcher, &QDBusPendingCallWatcher::finished, this, finished);
}

} // namespace kelvane
