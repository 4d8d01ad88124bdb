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
    std::string description; // what it allows
    std::string message;     // what the user is told who is asked for a password
};

// Why a lock stays closed that the user wants open, or why closing it did not reach the authority.
struct AuthorizationProblem {
    enum class Kind {
        None,            // there was an answer; one that the user cancelled is one
        NoProperAnswer,  // the authority is not there, or answers as it should not
        NobodyAsks,      // no authentication agent could ask for the password
        Refused,         // by the authority
        RefusedByChoice, // by `AuthorizationChoice::Denied`
        NotGivenBack,    // the right stays granted for other programs
    };

    Kind kind = Kind::None;
    std::string detail; // what the authority said of it

    explicit operator bool() const { return kind != Kind::None; }
    bool operator==(const AuthorizationProblem&) const = default;
};

// Who hears what becomes of the lock, on the main thread, and may drop the lock there. Called from the event
// loop; only that the asking begins is told inside `unlock`.
class AuthorizationDelegate {
public:
    virtual ~AuthorizationDelegate() = default;

    // The first answer of all is always told; later ones when they differ from the one before.
    virtual void authorizationDidAuthorize() = 0;
    virtual void authorizationDidDeauthorize() = 0;
    // The user's agent is asked now, or has answered: `isAsking` or `problem` is another one.
    virtual void authorizationAskingChanged() = 0;
};

// The lock before what only an administrator may change. Locked until an authority says otherwise, and again
// when it is gone.
//
// Main thread only. Nothing waits; every answer comes from the event loop, never from inside the call, and
// within a bounded time: `answerPatience`, or `askingPatience` where a person answers. A completion is called
// exactly once, unless the object goes first: then not at all.
class Authorization {
public:
    enum class State { Unknown, Locked, Authorized }; // unknown until the first answer: take it for locked
    enum class RightStatus { Exists, Absent, Unreachable };

    static constexpr std::chrono::milliseconds answerPatience{5'000};
    static constexpr std::chrono::milliseconds askingPatience{300'000};

    Authorization() = default;
    virtual ~Authorization() = default;
    Authorization(const Authorization&) = delete;
    Authorization& operator=(const Authorization&) = delete;

    // Not owned; null for nobody. It must outlive this object or take itself out.
    virtual void setDelegate(AuthorizationDelegate* delegate) = 0;

    // Whether the authority knows the right, and making it known where that is permitted; true when it was.
    virtual void lookUpRight(std::function<void(RightStatus)> completion) = 0;
    virtual void createRight(std::function<void(bool created)> completion) = 0;

    // Asks the authority without asking the user, now and whenever the authority says that something has
    // changed. A lock that the user has closed stays closed.
    virtual void startUpdating() = 0;

    // Has the user's own agent ask for the password where one is needed. A second call while the first is
    // asking joins it.
    virtual void unlock(std::function<void(bool granted)> completion = {}) = 0;
    // Takes the question back: the completion says false.
    virtual void cancelUnlock() = 0;
    // Gives a granted right back. Outside a login session polkit does not take it: the lock is closed all the
    // same, `problem` says why, and other programs still find this process authorized for some minutes.
    virtual void lock() = 0;

    [[nodiscard]] virtual State state() const = 0;
    [[nodiscard]] virtual bool isAsking() const = 0;
    [[nodiscard]] virtual AuthorizationProblem problem() const = 0;

    // For a program that checks by itself; see `checkAuthorization`. None when this process cannot say who it
    // is.
    [[nodiscard]] std::optional<AuthorizationForm> externalForm() const;
};

enum class AuthorizationChoice { Polkit, Granted, Denied };

// `Granted` and `Denied` always answer the same, for trying and for tests: their right exists, unlocking one
// succeeds and the other refuses, and a granted one can be locked and unlocked. Their external form is that
// of this process and opens nothing.
[[nodiscard]] std::unique_ptr<Authorization>
makeAuthorization(AuthorizationChoice choice, std::shared_ptr<MainLoop> mainLoop, RightDefinition right);

// Runs the event loop until `unlock` has its answer: the window is painted and can be closed meanwhile.
[[nodiscard]] bool unlockAndWait(Authorization& authorization);

enum class AuthorizationAnswer { Granted, Refused, Unreachable };

// For the program that receives an external form: asks polkit whether that process has the right, without
// asking the user. Waits for at most `patience`; needs a QCoreApplication. Polkit lets only root ask about
// processes of other users.
[[nodiscard]] AuthorizationAnswer
checkAuthorization(const ProcessIdentity& process, const std::string& right,
                   std::chrono::milliseconds patience = Authorization::answerPatience);

} // namespace kelvane
