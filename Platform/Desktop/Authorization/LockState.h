#pragma once

#include "Platform/Desktop/Authorization/Authorization.h"

#include <utility>
#include <vector>

namespace kelvane {

// What every kind of lock keeps and tells: whether it is open, whether the user is being asked, why there was
// no answer. Main thread only.
//
// What it tells may drop the lock with everything in it; each operation that tells returns false then.
class LockState {
public:
    using Completion = std::function<void(bool granted)>;

    void setDelegate(AuthorizationDelegate* delegate) { delegate_ = delegate; }

    [[nodiscard]] Authorization::State state() const { return state_; }
    [[nodiscard]] bool isAsking() const { return isAsking_; }
    [[nodiscard]] const AuthorizationProblem& problem() const { return problem_; }

    // The answer that counts from now on.
    bool settle(bool isAuthorized, AuthorizationProblem problem = {});

    // The user is asked from now on, on behalf of `completion` and of those that came before; they are called
    // by `finishAsking`, which tells the answer first.
    void addCompletion(Completion completion);
    bool startAsking();
    // Counts the questions: the answer to any but this one is too late.
    [[nodiscard]] unsigned question() const { return question_; }
    void withdrawQuestion() { ++question_; }
    bool finishAsking(bool isAuthorized, AuthorizationProblem problem = {});
    // The same without an answer: the lock stays as it is, and completions say false.
    bool stopAsking(AuthorizationProblem problem = {});

private:
    bool tell(void (AuthorizationDelegate::*what)());
    bool endAsking(bool granted);

    AuthorizationDelegate* delegate_ = nullptr;
    Authorization::State state_ = Authorization::State::Unknown;
    bool isAsking_ = false;
    unsigned question_ = 0;
    AuthorizationProblem problem_;
    std::vector<Completion> completions_;
    // Ends with this object: by a weak pointer to it, what has called out sees whether it may go on.
    const std::shared_ptr<const void> presence_ = std::make_shared<char>();
};

} // namespace kelvane
