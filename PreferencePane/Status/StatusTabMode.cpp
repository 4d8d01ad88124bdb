// Shows, chooses and sets the daemon's mode on the Status tab.

#include "PreferencePane/Services/Sheet.h"
#include "PreferencePane/Status/ScreenText.h"
#include "PreferencePane/Status/StatusModes.h"
#include "PreferencePane/Status/StatusTabController.h"
#include "Support/Preferences/DefaultsDB.h"

#include <ui_StatusTab.h>

namespace kelvane {
namespace {

constexpr std::uint32_t minutesOfPause = 24 * 60;
constexpr std::chrono::seconds pauseInterval(2); // the interval of the state poll

constexpr std::int32_t numberOf(DaemonMode mode) {
    return static_cast<std::int32_t>(mode);
}

} // namespace

KelvaneStatusTabController::ModeReading KelvaneStatusTabController::readDaemonMode() const {
    if (isDisableInProgress_)
        return {};
    const auto state = prefs_.backupState();
    if (!state)
        return {};
    const std::uint32_t pausedMinutes = state->pausedMinutes();
    return {daemonMode(pausedMinutes, state->recoverMode(), state->connected()), pausedMinutes};
}

// A tab that asks the daemon may find the link lost, which calls this again and changes the mode.
void KelvaneStatusTabController::updateMode() {
    const ModeReading reading = readDaemonMode();
    updateModeMenuForCurrentState(numberOf(reading.mode));
    setDaemonModeField(reading);
    currentDaemonModeButtonState_ = numberOf(reading.mode);
    ui_->uninstallButton->setVisible(isDisabled());
    ui_->uninstallButton->setEnabled(isDisabled());
    prefs_.enableRestoreTabItems(!isDisabled());
    prefs_.enableBackupTabItems(!isDisabled());
    if (isDisabled())
        prefs_.flags().manualToggleButtonEnable = false;
    if (reading.mode != DaemonMode::Paused)
        pauseTimer_.stop();
    else if (!pauseTimer_.isRunning())
        pauseTimer_ =
            prefs_.mainLoop()->schedule(pauseInterval, MainLoop::Repeat::Always, [this] { followPause(); });
}

// The daemon's state reports a pause, but not its remaining time.
void KelvaneStatusTabController::followPause() {
    const ModeReading reading = readDaemonMode();
    if (reading.mode == DaemonMode::Paused)
        showModeSentence(reading);
    else
        updateMode();
}

void KelvaneStatusTabController::updateModeMenuForCurrentState(std::int32_t mode) {
    ui_->daemonModeButton->showMode(mode, enabledModeItems(mode, prefs_.prefPaneAccessAuthorized()));
}

void KelvaneStatusTabController::refreshStatusModePopup() {
    updateModeMenuForCurrentState(currentDaemonModeButtonState_);
}

void KelvaneStatusTabController::showModeSentence(const ModeReading& reading) {
    ui_->daemonModeField->setText(
        screenText(modeSentence(reading.mode, reading.pausedMinutes, *prefs_.bundle())));
}

void KelvaneStatusTabController::setDaemonModeField(const ModeReading& reading) {
    showModeSentence(reading);
    const auto state = prefs_.backupState();
    const bool isStopped = state && state->isQuotaLimited() && state->isOverQuota();
    ui_->backupProgress->setVisible(reading.mode == DaemonMode::Enabled && !isStopped);
}

void KelvaneStatusTabController::daemonModeAction(std::int32_t index) {
    if (index == currentDaemonModeButtonState_ || !isDaemonMode(index))
        return;
    const ModeItems items =
        enabledModeItems(currentDaemonModeButtonState_, prefs_.prefPaneAccessAuthorized());
    // The mode may have changed while the list was open.
    if (isOperating_ || !items.at(static_cast<std::size_t>(index)))
        return updateMode();
    const auto chosen = static_cast<DaemonMode>(index);
    if (needsWarning(chosen, getDaemonMode()))
        warnUserAboutMode(chosen);
    else
        handleDaemonModeAction(chosen);
}

void KelvaneStatusTabController::warnUserAboutMode(DaemonMode mode) {
    const auto state = prefs_.backupState();
    std::string message;
    if (mode == DaemonMode::Recover)
        message = text(StatusText::EnterRecoverAlert);
    if (state && state->recoverMode())
        message = text(StatusText::ExitRecoverAlert);
    nextRequestedMode_ = mode;
    sheet_ = openSheet(view_,
                       {.message = screenText(message), .informative = {}, .buttons = {"Proceed", "Cancel"}},
                       &context_, [this](int returnCode) { alertDidEnd(returnCode); });
}

void KelvaneStatusTabController::alertDidEnd(int returnCode) {
    if (returnCode == firstButtonReturn)
        handleDaemonModeAction(nextRequestedMode_);
    else
        updateMode();
}

void KelvaneStatusTabController::handleDaemonModeAction(DaemonMode mode) {
    applyMode(mode);
    // A pane that was hidden meanwhile must not connect again.
    if (isShown_ && !prefs_.connected())
        prefs_.didSelect();
    // Shows the new mode at once instead of at the next poll.
    if (const auto state = prefs_.backupState())
        state->updateDaemonState();
    updateMode();
    DefaultsDB::setIntProperty(numberOf(mode), modeSelectionKey);
}

void KelvaneStatusTabController::applyMode(DaemonMode mode) {
    if (mode == DaemonMode::Disabled) {
        isDisableInProgress_ = true;
        prefs_.flags().disableAuthorized = false;
        static_cast<void>(enableDaemon(false)); // `disableAuthorized` holds the result
        if (!prefs_.flags().disableAuthorized)
            isDisableInProgress_ = false;
        return;
    }
    if (mode == DaemonMode::Enabled) {
        isDisableInProgress_ = false;
        // A daemon that connects meanwhile may be in a mode that needs a warning before it is left: that mode
        // is shown first.
        const bool wasConnected = prefs_.connected();
        if (enableDaemon(true) != 0 || !wasConnected)
            return;
    }
    const auto state = prefs_.backupState();
    if (!state)
        return;
    if (mode == DaemonMode::Recover)
        state->setRecoverMode(true);
    state->setPausedMinutes(mode == DaemonMode::Paused ? minutesOfPause : 0);
    if (mode == DaemonMode::Enabled)
        state->setRecoverMode(false);
}

int KelvaneStatusTabController::enableDaemon(bool enable) {
    if (enable && !isDisabled())
        return 0;
    return uninstall(enable ? Operation::Enable : Operation::Disable);
}

} // namespace kelvane
