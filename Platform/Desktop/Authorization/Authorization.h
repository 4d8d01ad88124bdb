#pragma once

#include "Foundation/MainLoop.h"
#include "Platform/Desktop/Authorization/AuthorizationForm.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvane {

// A right that an administrator has to confirm.
struct RightDefinition {
    std::string name;        // "com.kelvane.prefs.change"
    std::string description; // what the right allows
    std::string message;     // shown to the user who is asked for a password
};

// Why a lock could not be opened, or why the authority did not revoke the right when the lock was closed.
struct AuthorizationProblem {
    enum class Kind {
        None,            // no problem; also when the user cancelled the question
        NoProperAnswer,  // the authority is not available or gave an invalid answer
        NoAgent,         // no authentication agent could ask for the password
        Refused,         // refused by the authority
        RefusedByChoice, // refused by `AuthorizationChoice::Denied`
        NotRevoked,      // the right is still granted to other programs
    };

    Kind kind = Kind::None;
    std::string detail; // the authority's own message

    explicit operator bool() const { return kind != Kind::None; }
    bool operator==(const AuthorizationProblem&) const = default;
};

// Receives changes of the lock on the main thread, and may destroy the lock there. Called from the event
// loop, except that the start of a question is reported inside `unlock`.
class AuthorizationDelegate {
public:
    virtual ~AuthorizationDelegate() = default;

    // The first answer is always reported; later ones only when they differ from the previous one.
    virtual void authorizationDidAuthorize() = 0;
    virtual void authorizationDidDeauthorize() = 0;
    // The user's agent starts to ask or has answered: `isAsking` or `problem` has changed.
    virtual void authorizationAskingChanged() = 0;
};

// The lock of settings that only an administrator may change. Locked until an authority grants the right, and
// again when the authority is no longer available.
//
// Main thread only. Nothing blocks; every answer comes from the event loop, never inside the call, and within
// `authorityTimeout`, or `userAnswerTimeout` where a person answers. A completion is called exactly once, or
// never if the object is destroyed first.
class Authorization {
public:
    enum class State { Unknown, Locked, Authorized }; // unknown until the first answer: treat as locked
    enum class RightStatus { Exists, Absent, Unreachable };

    static constexpr std::chrono::milliseconds authorityTimeout{5'000};
    static constexpr std::chrono::milliseconds userAnswerTimeout{300'000};

    Authorization() = default;
    virtual ~Authorization() = default;
    Authorization(const Authorization&) = delete;
    Authorization& operator=(const Authorization&) = delete;

    // Not owned; may be null. The delegate must outlive this object or remove itself.
    virtual void setDelegate(AuthorizationDelegate* delegate) = 0;

    // `lookUpRight` reports whether the authority knows the right; `createRight` defines a missing right
    // where that is permitted, and reports whether it did.
    virtual void lookUpRight(std::function<void(RightStatus)> completion) = 0;
    virtual void createRight(std::function<void(bool created)> completion) = 0;

    // Asks the authority without asking the user, now and at every change that the authority reports. A lock
    // that the user has closed stays closed.
    virtual void startUpdating() = 0;

    // Lets the user's authentication agent ask for the password if one is needed. A second call while the
    // first is in progress joins it.
    virtual void unlock(std::function<void(bool granted)> completion = {}) = 0;
    // Cancels the question; the completion gets false.
    virtual void cancelUnlock() = 0;
    // Revokes a granted right. Outside a login session polkit cannot revoke it: the lock closes all the same,
    // `problem` says why, and other programs still find this process authorized for some minutes.
    virtual void lock() = 0;

    [[nodiscard]] virtual State state() const = 0;
    [[nodiscard]] virtual bool isAsking() const = 0;
    [[nodiscard]] virtual AuthorizationProblem problem() const = 0;

    // For a program that checks the right itself; see `checkAuthorization`. None when the identity of this
    // process is unknown.
    [[nodiscard]] std::optional<AuthorizationForm> externalForm() const;
};

enum class AuthorizationChoice { Polkit, Granted, Denied };

// `Granted` and `Denied` always give the same answer, for demonstrations and tests: their right exists,
// unlocking one succeeds and the other is refused, and a granted one can be locked and unlocked. Their
// external form identifies this process and authorizes nothing.
[[nodiscard]] std::unique_ptr<Authorization>
makeAuthorization(AuthorizationChoice choice, std::shared_ptr<MainLoop> mainLoop, RightDefinition right);

// Runs the event loop until `unlock` has its answer: meanwhile the window paints and can be closed.
[[nodiscard]] bool unlockAndWait(Authorization& authorization);

enum class AuthorizationAnswer { Granted, Refused, Unreachable };

// For the program that receives an external form: asks polkit whether that process has the right, without
// asking the user. Waits at most `timeout`; needs a QCoreApplication. Polkit lets only root ask about
// processes of other users.
[[nodiscard]] AuthorizationAnswer
checkAuthorization(const ProcessIdentity& process, const std::string& right,
                   std::chrono::milliseconds timeout = Authorization::authorityTimeout);

} // namespace kelvane
