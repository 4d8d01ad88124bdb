#include "Platform/Desktop/Authorization/PolkitAuthorization.h"

#include <algorithm>

namespace kelvane {

namespace {

using Problem = AuthorizationProblem::Kind;

AuthorizationProblem problemOf(const PolkitAnswer& answer) {
    if (answer.isAuthorized || answer.isDismissed)
        return {};
    if (!answer.error.empty())
        return {Problem::NoProperAnswer, answer.error};
    return {answer.isChallenge ? Problem::NoAgent : Problem::Refused, {}};
}

} // namespace

PolkitAuthorization::PolkitAuthorization(std::shared_ptr<MainLoop> mainLoop, RightDefinition right,
                                         std::string folder)
    : mainLoop_(std::move(mainLoop)),
      right_(std::move(right)),
      folder_(std::move(folder)),
      authority_([this] { post([this] { update(); }); }) {}

PolkitAuthorization::~PolkitAuthorization() {
    if (lock_.isAsking())
        authority_.cancel(cancellation());
}

void PolkitAuthorization::lookUpRight(std::function<void(RightStatus)> completion) {
    authority_.enumerateRights([this, completion = std::move(completion)](const auto& rights) {
        if (!rights)
            completion(RightStatus::Unreachable);
        else
            completion(std::ranges::find(*rights, right_.name) != rights->end() ? RightStatus::Exists
                                                                                : RightStatus::Absent);
    });
}

void PolkitAuthorization::createRight(std::function<void(bool created)> completion) {
    const bool isCreated = installPolicy(right_, folder_).empty();
    post([completion = std::move(completion), isCreated] { completion(isCreated); });
}

void PolkitAuthorization::startUpdating() {
    isFollowing_ = true;
    update();
}

void PolkitAuthorization::unlock(std::function<void(bool granted)> completion) {
    isClosedByUser_ = false;
    lock_.addCompletion(std::move(completion));
    if (lock_.isAsking() || !lock_.startAsking())
        return;
    authority_.check(question(Interaction::Allowed),
                     [this, asked = lock_.question()](const PolkitAnswer& answer) {
                         post([this, asked, answer] {
                             if (lock_.question() == asked)
                                 answered(answer);
                         });
                     });
}

void PolkitAuthorization::cancelUnlock() {
    if (!lock_.isAsking())
        return;
    authority_.cancel(cancellation());
    lock_.withdrawQuestion();
    post([this] {
        if (lock_.stopAsking() && needsUpdate_)
            update();
    });
}

void PolkitAuthorization::lock() {
    cancelUnlock();
    isClosedByUser_ = true;
    post([this] { lock_.settle(false); });
    const std::string given = std::exchange(temporaryAuthorization_, {});
    if (given.empty())
        return;
    authority_.revoke(given, [this](const std::string& error) {
        if (isClosedByUser_ && !error.empty())
            lock_.settle(false, {Problem::NotRevoked, error});
    });
}

PolkitAuthority::Question PolkitAuthorization::question(Interaction interaction) const {
    const bool mayAsk = interaction == Interaction::Allowed;
    return {.process = process_.value_or(ProcessIdentity()),
            .right = right_.name,
            .interaction = interaction,
            .cancellation = mayAsk ? cancellation() : std::string(),
            .timeout = mayAsk ? userAnswerTimeout : authorityTimeout};
}

std::string PolkitAuthorization::cancellation() const {
    return "question-" + std::to_string(lock_.question());
}

void PolkitAuthorization::update() {
    if (!isFollowing_ || isClosedByUser_)
        return;
    if (isUpdating_ || lock_.isAsking()) {
        needsUpdate_ = true;
        return;
    }
    isUpdating_ = true;
    needsUpdate_ = false;
    authority_.check(question(Interaction::Never),
                     [this](const PolkitAnswer& answer) { post([this, answer] { updated(answer); }); });
}

void PolkitAuthorization::updated(const PolkitAnswer& answer) {
    isUpdating_ = false;
    // What the user has done meanwhile takes precedence: closing the lock, or starting a question.
    if (isClosedByUser_)
        return;
    if (lock_.isAsking()) {
        needsUpdate_ = true;
        return;
    }
    temporaryAuthorization_ = answer.temporaryAuthorization;
    // An answer that the user would have to be asked is not a problem here.
    if (lock_.settle(answer.isAuthorized,
                     answer.error.empty() ? AuthorizationProblem() : problemOf(answer)) &&
        needsUpdate_)
        update();
}

void PolkitAuthorization::answered(const PolkitAnswer& answer) {
    // After a timeout the password dialog is still on the screen.
    if (!answer.error.empty())
        authority_.cancel(cancellation());
    temporaryAuthorization_ = answer.temporaryAuthorization;
    if (lock_.finishAsking(answer.isAuthorized, problemOf(answer)) && needsUpdate_)
        update();
}

void PolkitAuthorization::post(std::function<void()> task) {
    mainLoop_->post([presence = std::weak_ptr(presence_), task = std::move(task)] {
        if (!presence.expired())
            task();
    });
}

} // namespace kelvane
