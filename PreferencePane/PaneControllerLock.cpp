// The lock that decides whether the pane's settings can be changed.

#include "PreferencePane/PaneController.h"

#include "Support/Logging.h"

namespace kelvane {

void ComKelvanePreferencePanePref::setupAuth() {
    view_->authView().setIcons(qIcon(icons().named("changes-prevent")),
                               qIcon(icons().named("changes-allow")));
    view_->authView().setAction([this] { toggleLock(); });
    KelvaneCLog("authorizationViewCreatedAuthorization");
    authorization_->setDelegate(this);
    authorization_->lookUpRight([this](Authorization::RightStatus status) {
        if (status == Authorization::RightStatus::Absent)
            authorization_->createRight([this](bool) { authorization_->startUpdating(); });
        else
            authorization_->startUpdating(); // its first check determines whether the lock is open
    });
}

void ComKelvanePreferencePanePref::toggleLock() {
    if (authorization_->isAsking())
        authorization_->cancelUnlock();
    else if (authorization_->state() == Authorization::State::Authorized)
        authorization_->lock();
    else
        authorization_->unlock();
}

void ComKelvanePreferencePanePref::authorizationDidAuthorize() {
    KelvaneCLog("authorizationViewDidAuthorize");
    accessChanged();
}

void ComKelvanePreferencePanePref::authorizationDidDeauthorize() {
    KelvaneCLog("authorizationViewDidDeauthorize");
    accessChanged();
}

void ComKelvanePreferencePanePref::accessChanged() {
    authorizationAskingChanged();
    changeTabConfiguration(tabconfiguration::lastAgain, true);
    if (parts_.status)
        parts_.status->refreshStatusModePopup();
    post(KelvanePrefPaneDaemonStateChangedNotification);
}

void ComKelvanePreferencePanePref::authorizationAskingChanged() {
    const bool isOpen = authorization_->state() == Authorization::State::Authorized;
    view_->authView().showState({isOpen, authorization_->isAsking(), authorization_->problem()});
}

} // namespace kelvane
