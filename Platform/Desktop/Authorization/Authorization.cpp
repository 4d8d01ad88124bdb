#include "Platform/Desktop/Authorization/Authorization.h"

#include "Platform/Desktop/Authorization/FixedAuthorization.h"
#include "Platform/Desktop/Authorization/PolkitAuthorization.h"

#include <QEventLoop>

namespace kelvane {
namespace {

// Shared with the completion, which may still be called after the event loop of the program has ended.
struct Wait {
    void end() {
        isOver = true;
        loop.quit();
    }

    QEventLoop loop;
    bool isOver = false;
    bool isGranted = false;
};

// Destroyed with the completion, so that the wait also ends when the completion is dropped without an answer.
struct WaitEnder {
    explicit WaitEnder(std::shared_ptr<Wait> what) : wait(std::move(what)) {}
    ~WaitEnder() { wait->end(); }
    WaitEnder(const WaitEnder&) = delete;
    WaitEnder& operator=(const WaitEnder&) = delete;

    const std::shared_ptr<Wait> wait;
};

} // namespace

std::optional<AuthorizationForm> Authorization::externalForm() const {
    const std::optional<ProcessIdentity> process = currentProcess();
    return process ? std::optional(authorizationForm(*process)) : std::nullopt;
}

std::unique_ptr<Authorization> makeAuthorization(AuthorizationChoice choice,
                                                 std::shared_ptr<MainLoop> mainLoop, RightDefinition right) {
    if (choice == AuthorizationChoice::Polkit)
        return std::make_unique<PolkitAuthorization>(std::move(mainLoop), std::move(right));
    return std::make_unique<FixedAuthorization>(std::move(mainLoop), choice == AuthorizationChoice::Granted);
}

bool unlockAndWait(Authorization& authorization) {
    const auto wait = std::make_shared<Wait>();
    authorization.unlock([wait, ender = std::make_shared<WaitEnder>(wait)](bool granted) {
        wait->isGranted = granted;
        wait->end();
    });
    if (!wait->isOver)
        wait->loop.exec();
    return wait->isGranted;
}

AuthorizationAnswer checkAuthorization(const ProcessIdentity& process, const std::string& right,
                                       std::chrono::milliseconds timeout) {
    const PolkitAnswer answer =
        PolkitAuthority::checkNow({process, right, PolkitAuthority::Interaction::Never, {}, timeout});
    if (!answer.error.empty())
        return AuthorizationAnswer::Unreachable;
    return answer.isAuthorized ? AuthorizationAnswer::Granted : AuthorizationAnswer::Refused;
}

} // namespace kelvane
