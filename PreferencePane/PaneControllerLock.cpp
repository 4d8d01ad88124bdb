// The lock: who may change what the pane shows.

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
            authorization_->createRight([this](bool created) { rightWasLookedUp(created); });
        else
            rightWasLookedUp(status == Authorization::RightStatus::Exists);
    });
}

// The lock's own first check then says whether it is open.
void ComKelvanePreferencePanePref::rightWasLookedUp(bool exists) {
    if (authorization_->state() == Authorization::State::Unknown)
        prefPaneAccessAuthorized_ = exists;
    authorization_->startUpdating();
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
    accessChanged(true);
}

void ComKelvanePreferencePanePref::authorizationDidDeauthorize() {
    KelvaneCLog("authorizationViewDidDeauthorize");
    accessChanged(false);
}

void ComKelvanePreferencePanePref::accessChanged(bool isAuthorized) {
    prefPaneAccessAuthorized_ = isAuthorized;
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
