#pragma once

#include "Platform/Desktop/Authorization/LockState.h"
#include "Platform/Desktop/Authorization/PolicyFile.h"
#include "Platform/Desktop/Authorization/PolkitAuthority.h"

namespace kelvane {

// A lock whose authority is polkit: the right is its action of that name, given to this process.
class PolkitAuthorization : public Authorization {
public:
    // A missing right is made known by a file in `folder`.
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
    // Unless this object has gone by then.
    void post(std::function<void()> task);

    const std::shared_ptr<MainLoop> mainLoop_;
    const RightDefinition right_;
    const std::string folder_;
    const std::optional<ProcessIdentity> process_ = currentProcess();
    LockState lock_;
    bool isUpdating_ = false;  // an update waits for its answer
    bool needsUpdate_ = false; // what changed meanwhile
    bool isFollowing_ = false; // from `startUpdating` on
    bool isClosedByUser_ = false;
    std::string temporaryAuthorization_;
    PolkitAuthority authority_;
    const std::shared_ptr<const void> presence_ = std::make_shared<char>();
};

} // namespace kelvane
