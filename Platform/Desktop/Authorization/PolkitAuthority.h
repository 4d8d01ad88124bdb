#pragma once

#include "Platform/Desktop/Authorization/Authorization.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvane {

// Polkit's answer whether a process has a right.
struct PolkitAnswer {
    std::string error; // from the bus or from polkit; empty when there was an answer
    bool isAuthorized = false;
    bool isChallenge = false; // the user would have to be asked, and was not
    bool isDismissed = false; // the user closed the password dialog
    // the id of the temporary authorization, for revoking it; may be empty
    std::string temporaryAuthorization;
};

// Polkit's authority over its own connection to the system bus. Nothing blocks: each completion is called
// from the event loop, unless this object is destroyed first. Belongs to the thread of the QCoreApplication.
class PolkitAuthority : public QObject {
    Q_OBJECT

public:
    enum class Interaction : unsigned { Never = 0, Allowed = 1 };
    struct Question {
        ProcessIdentity process;
        std::string right;
        Interaction interaction = Interaction::Never;
        std::string cancellation; // the id for `cancel`; may be empty
        std::chrono::milliseconds timeout = Authorization::authorityTimeout;
    };

    // `changed` is called whenever an answer may have changed, also when polkit itself stopped or started.
    explicit PolkitAuthority(std::function<void()> changed);
    ~PolkitAuthority() override;

    void check(const Question& question, std::function<void(const PolkitAnswer&)> completion);
    // The question with that id ends with an error.
    void cancel(const std::string& cancellation);
    // Completes with the reason of a failure, or empty on success.
    void revoke(const std::string& temporaryAuthorization, std::function<void(std::string)> completion);
    // The names of all rights that polkit knows; none when it does not answer.
    void enumerateRights(std::function<void(std::optional<std::vector<std::string>>)> completion);

    // The blocking form of `check`.
    [[nodiscard]] static PolkitAnswer checkNow(const Question& question);

private:
    Q_SLOT void authorityChanged();
    // Reconnects when the connection was lost.
    [[nodiscard]] QDBusConnection& bus();
    bool subscribe();
    void call(const QDBusMessage& message, std::chrono::milliseconds timeout,
              std::function<void(const QDBusMessage&)> completion);

    const std::function<void()> changed_;
    const QString connectionName_;
    QDBusConnection bus_;
    bool isSubscribed_ = false;
};

} // namespace kelvane
