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

// What polkit answers to the question whether a process has a right.
struct PolkitAnswer {
    std::string error; // of the bus or of polkit; empty when there was an answer
    bool isAuthorized = false;
    bool isChallenge = false;           // somebody would have to be asked, and nobody was
    bool isDismissed = false;           // the one who was asked closed the question
    std::string temporaryAuthorization; // what it rests on, for giving it back; may be empty
};

// polkit's authority over a connection of its own to the system bus. Nothing waits: each completion is called
// from the event loop, unless this object goes first. Belongs to the thread of the QCoreApplication.
class PolkitAuthority : public QObject {
    Q_OBJECT

public:
    enum class Interaction : unsigned { Never = 0, Allowed = 1 };
    struct Question {
        ProcessIdentity process;
        std::string right;
        Interaction interaction = Interaction::Never;
        std::string cancellation; // what `cancel` calls it; may be empty
        std::chrono::milliseconds patience = Authorization::answerPatience;
    };

    // `changed` runs whenever an answer may have become another one, also when polkit itself went or came.
    explicit PolkitAuthority(std::function<void()> changed);
    ~PolkitAuthority() override;

    void check(const Question& question, std::function<void(const PolkitAnswer&)> completion);
    // The question that is under way under that name ends with an error.
    void cancel(const std::string& cancellation);
    // Says why it could not be, empty when it was.
    void revoke(const std::string& temporaryAuthorization, std::function<void(std::string)> completion);
    // The names of all rights that it knows; none when it does not answer.
    void enumerateRights(std::function<void(std::optional<std::vector<std::string>>)> completion);

    // The same as `check`, and waits for it.
    [[nodiscard]] static PolkitAnswer checkNow(const Question& question);

private:
    Q_SLOT void authorityChanged();
    // Connects again where the connection was lost.
    [[nodiscard]] QDBusConnection& bus();
    bool subscribe();
    void call(const QDBusMessage& message, std::chrono::milliseconds patience,
              std::function<void(const QDBusMessage&)> completion);

    const std::function<void()> changed_;
    const QString connectionName_;
    QDBusConnection bus_;
    bool isSubscribed_ = false;
};

} // namespace kelvane
