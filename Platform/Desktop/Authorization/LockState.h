#pragma once

#include "Platform/Desktop/Authorization/Authorization.h"

#include <utility>
#include <vector>

namespace kelvane {

// The state that every kind of lock keeps and reports: whether it is open, whether the user is being asked,
// why there was no answer. Main thread only.
//
// A delegate or completion may destroy the lock and this object; each operation that calls them returns false
// then.
class LockState {
public:
    using Completion = std::function<void(bool granted)>;

    void setDelegate(AuthorizationDelegate* delegate) { delegate_ = delegate; }

    [[nodiscard]] Authorization::State state() const { return state_; }
    [[nodiscard]] bool isAsking() const { return isAsking_; }
    [[nodiscard]] const AuthorizationProblem& problem() const { return problem_; }

    // Sets the current answer and reports a change.
    bool settle(bool isAuthorized, AuthorizationProblem problem = {});

    // Adds a completion to the question in progress, or to the next one. When the question ends, the delegate
    // is notified, and then all completions are called.
    void addCompletion(Completion completion);
    bool startAsking();
    // The number of the current question; an answer to an earlier one is ignored.
    [[nodiscard]] unsigned question() const { return question_; }
    void withdrawQuestion() { ++question_; }
    bool finishAsking(bool isAuthorized, AuthorizationProblem problem = {});
    // The same without an answer: the lock keeps its state, and the completions get false.
    bool stopAsking(AuthorizationProblem problem = {});

private:
    bool notify(void (AuthorizationDelegate::*what)());
    bool endAsking(bool granted);

    AuthorizationDelegate* delegate_ = nullptr;
    Authorization::State state_ = Authorization::State::Unknown;
    bool isAsking_ = false;
    unsigned question_ = 0;
    AuthorizationProblem problem_;
    std::vector<Completion> completions_;
    // A weak pointer to it tells a function that called out whether this object still exists.
    const std::shared_ptr<const void> presence_ = std::make_shared<char>();
};

} // namespace kelvane
