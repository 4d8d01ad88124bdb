#include "Platform/Desktop/Authorization/LockState.h"

namespace kelvane {

bool LockState::settle(bool isAuthorized, AuthorizationProblem problem) {
    const auto state = isAuthorized ? Authorization::State::Authorized : Authorization::State::Locked;
    const bool isNewProblem = std::exchange(problem_, std::move(problem)) != problem_;
    if (std::exchange(state_, state) == state)
        return !isNewProblem || notify(&AuthorizationDelegate::authorizationAskingChanged);
    return notify(isAuthorized ? &AuthorizationDelegate::authorizationDidAuthorize
                               : &AuthorizationDelegate::authorizationDidDeauthorize);
}

void LockState::addCompletion(Completion completion) {
    if (completion)
        completions_.push_back(std::move(completion));
}

bool LockState::startAsking() {
    isAsking_ = true;
    ++question_;
    problem_ = {};
    return notify(&AuthorizationDelegate::authorizationAskingChanged);
}

bool LockState::finishAsking(bool isAuthorized, AuthorizationProblem problem) {
    isAsking_ = false;
    problem_ = std::move(problem);
    return settle(isAuthorized, problem_) && endAsking(isAuthorized);
}

bool LockState::stopAsking(AuthorizationProblem problem) {
    isAsking_ = false;
    problem_ = std::move(problem);
    return endAsking(false);
}

bool LockState::endAsking(bool granted) {
    const auto completions = std::exchange(completions_, {});
    bool isThere = notify(&AuthorizationDelegate::authorizationAskingChanged);
    for (const std::weak_ptr<const void> presence = presence_; const Completion& completion : completions) {
        if (!isThere)
            return false;
        completion(granted);
        isThere = !presence.expired();
    }
    return isThere;
}

bool LockState::notify(void (AuthorizationDelegate::*what)()) {
    const std::weak_ptr<const void> presence = presence_;
    if (delegate_ != nullptr)
        (delegate_->*what)();
    return !presence.expired();
}

} // namespace kelvane
