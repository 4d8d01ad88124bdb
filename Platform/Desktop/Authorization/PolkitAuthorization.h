#pragma once

#include "Platform/Desktop/Authorization/LockState.h"
#include "Platform/Desktop/Authorization/PolicyFile.h"
#include "Platform/Desktop/Authorization/PolkitAuthority.h"

namespace kelvane {

// A lock with polkit as its authority: the right is the polkit action of that name, granted to this process.
class PolkitAuthorization : public Authorization {
public:
    // A missing right is installed as a file in `folder`.
    PolkitAuthorization(std::shared_ptr<MainLoop> mainLoop, RightDefinition right,
                        std::string folder = policyFolder);
    ~PolkitAuthorization() override;

    void setDelegate(AuthorizationDelegate* delegate) override { lock_.setDelegate(delegate); }
    void lookUpRight(std::function<void(RightStatus)> completion) override;
    void createRight(std::function<void(bool created)> completion) override;
    void startUpdating() override;
    void unlock(std::function<void(bool granted)> completion) override;
    void cancelUnlock() override;
    void lock() override;

    [[nodiscard]] State state() const override { return lock_.state(); }
    [[nodiscard]] bool isAsking() const override { return lock_.isAsking(); }
    [[nodiscard]] AuthorizationProblem problem() const override { return lock_.problem(); }

private:
    using Interaction = PolkitAuthority::Interaction;

    [[nodiscard]] PolkitAuthority::Question question(Interaction interaction) const;
    [[nodiscard]] std::string cancellation() const;
    void update();
    void updated(const PolkitAnswer& answer);
    void answered(const PolkitAnswer& answer);
    // Does nothing if this object is destroyed first.
    void post(std::function<void()> task);

    const std::shared_ptr<MainLoop> mainLoop_;
    const RightDefinition right_;
    const std::string folder_;
    const std::optional<ProcessIdentity> process_ = currentProcess();
    LockState lock_;
    bool isUpdating_ = false;  // an update is waiting for its answer
    bool needsUpdate_ = false; // something changed during the update
    bool isFollowing_ = false; // set by `startUpdating`
    bool isClosedByUser_ = false;
    std::string temporaryAuthorization_;
    PolkitAuthority authority_;
    const std::shared_ptr<const void> presence_ = std::make_shared<char>();
};

} // namespace kelvane
