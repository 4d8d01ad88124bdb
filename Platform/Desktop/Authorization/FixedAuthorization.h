#pragma once

#include "Platform/Desktop/Authorization/LockState.h"

namespace kelvane {

// A lock without an authority: everything is granted, or nothing is.
class FixedAuthorization : public Authorization {
public:
    FixedAuthorization(std::shared_ptr<MainLoop> mainLoop, bool isGranted)
        : mainLoop_(std::move(mainLoop)), isGranted_(isGranted) {}

    void setDelegate(AuthorizationDelegate* delegate) override { lock_->setDelegate(delegate); }
    void lookUpRight(std::function<void(RightStatus)> completion) override;
    void createRight(std::function<void(bool created)> completion) override;
    void startUpdating() override;
    void unlock(std::function<void(bool granted)> completion) override;
    void cancelUnlock() override;
    void lock() override;

    [[nodiscard]] State state() const override { return lock_->state(); }
    [[nodiscard]] bool isAsking() const override { return lock_->isAsking(); }
    [[nodiscard]] AuthorizationProblem problem() const override { return lock_->problem(); }

private:
    // Runs from the event loop, unless this object is destroyed first.
    void post(std::function<void(LockState& lock)> task);

    const std::shared_ptr<MainLoop> mainLoop_;
    const bool isGranted_;
    const std::shared_ptr<LockState> lock_ = std::make_shared<LockState>();
};

} // namespace kelvane
