// The contents of the Status tab, and its settings. The mode is in StatusTabMode.cpp, the bundle's tools in
// StatusTabTools.cpp.

#include "PreferencePane/Status/StatusTabController.h"

#include "Foundation/Format.h"
#include "Platform/Desktop/Broadcast.h"
#include "PreferencePane/Services/ButtonActions.h"
#include "PreferencePane/Services/FormTexts.h"
#include "PreferencePane/Services/OpenFailure.h"
#include "PreferencePane/Status/ScreenText.h"
#include "PreferencePane/Status/StatusModes.h"
#include "Support/Logging.h"
#include "Support/Preferences/DefaultsDB.h"

#include <QSignalBlocker>
#include <algorithm>
#include <ui_StatusTab.h>
#include <utility>

namespace kelvane {
namespace {

constexpr std::string_view showMenuKey = "showKelvaneStatusInMenuBar";

constexpr std::string_view statusKey = "lastBackupStatusStr";
constexpr std::string_view containsKey = "lastSizeOfBackupStr";
constexpr std::string_view awaitingKey = "lastNumberOfFilesAwaitingBackupStr";
constexpr std::string_view accountKey = "lastAcctEmailStr";
constexpr std::string_view percentKey = "lastPercentageDoneInt";
constexpr std::string_view priorityKey = "lastPrioritySettingBool";

void restoreText(std::string_view key, QLabel& field) {
    if (const auto kept = DefaultsDB::stringProperty(key))
        field.setText(QString::fromStdString(*kept));
}

// Does not emit `toggled`, which is reserved for the user's changes.
void showChecked(QAbstractButton& box, bool isChecked) {
    const QSignalBlocker nobodyHasDoneIt(box);
    box.setChecked(isChecked);
}

} // namespace

KelvaneStatusTabController::KelvaneStatusTabController(PaneServices& prefs, std::string handOffPath)
    : prefs_(prefs),
      handOffPath_(std::move(handOffPath)),
      ui_(std::make_unique<Ui::StatusTab>()),
      view_(new QScrollArea) {
    ui_->setupUi(static_cast<QScrollArea*>(view_.data()));
    ui_->uninstallButton->hide();
    static_cast<QScrollArea*>(view_.data())->viewport()->setAutoFillBackground(false);
    ui_->content->setAutoFillBackground(false);
    localizeForm(*view_, *prefs_.bundle());
    for (int item = 0; item < ui_->daemonModeButton->count(); ++item) {
        const std::string name = ui_->daemonModeButton->itemText(item).toStdString();
        ui_->daemonModeButton->setItemText(item, screenText(prefs_.text(name)));
    }
    ui_->versionField->setAccessibleDescription(screenText(text(StatusText::VersionName)));
    connectControls();
}

KelvaneStatusTabController::~KelvaneStatusTabController() {
    delete sheet_.data();
    if (view_ && !view_->parentWidget())
        delete view_.data();
}

void KelvaneStatusTabController::connectControls() {
    QObject::connect(ui_->daemonModeButton, &QComboBox::activated, &context_,
                     [this](int index) { daemonModeAction(index); });
    connectButtons<KelvaneStatusTabController>(
        *this, context_,
        {
            {ui_->uninstallButton, &KelvaneStatusTabController::uninstallAction},
            {ui_->openAccountButton, &KelvaneStatusTabController::openAccountAction},
            {ui_->referButton, &KelvaneStatusTabController::referAction},
        });
    // A screen reader toggles a check box without a click.
    QObject::connect(ui_->lowerPriorityButton, &QAbstractButton::toggled, &context_,
                     [this] { lowerPriorityAction(); });
    QObject::connect(ui_->showMenuButton, &QAbstractButton::toggled, &context_, [this] { showMenuAction(); });
}

void KelvaneStatusTabController::awakeFromNib() {
    ui_->daemonModeButton->setEnabled(true);
    lastDaemonModeButtonState_ = DefaultsDB::intProperty(modeSelectionKey);
    currentDaemonModeButtonState_ = lastDaemonModeButtonState_;
    ui_->daemonModeButton->showMode(lastDaemonModeButtonState_, {});
    const std::string version = prefs_.bundle()->information("CFBundleShortVersionString").stringValue();
    ui_->versionField->setText(screenText(formatTranslated(text(StatusText::Version), version)));
    readyChangedNotification();
    observers_ = prefs_.observeDaemon([this] { readyChangedNotification(); },
                                      [this] { daemonStateChangedNotification(); });
    showChecked(*ui_->showMenuButton, DefaultsDB::boolProperty(showMenuKey, false, true));
    ui_->referButton->setVisible(isShowRefer());
    updateStatusFieldsFromDefaultsDB();
}

void KelvaneStatusTabController::didSelectPrefPane() {
    isShown_ = true;
    readyChangedNotification();
    daemonStateChangedNotification();
}

bool KelvaneStatusTabController::inRecoverMode() const {
    return currentDaemonModeButtonState_ == static_cast<std::int32_t>(DaemonMode::Recover);
}

void KelvaneStatusTabController::readyChangedNotification() {
    const bool isConnected = prefs_.connected();
    if (!isConnected) {
        KelvaneCLog("StatusTab: disconnected");
        isDisableInProgress_ = false;
    } else if (!isDisableInProgress_) {
        KelvaneCLog("StatusTab: connected");
    }
    ui_->lowerPriorityButton->setEnabled(isConnected);
    updateMode();
}

void KelvaneStatusTabController::daemonStateChangedNotification() {
    const auto state = prefs_.backupState();
    ui_->showMenuButton->setEnabled(prefs_.prefPaneAccessAuthorized());
    const bool isConnected = state && state->connected();
    KelvaneCLog("StatusTabController:daemonStateChangedNotification(): (%s)",
                isConnected ? "connected" : "not connected");
    if (isConnected && state->hasDaemonState())
        return showDaemonState(*state);
    if (isConnected && !prefs_.prefPaneAccessAuthorized())
        ui_->lowerPriorityButton->setEnabled(false);
    updateMode();
    if (!hasRecentDataFromDaemon_)
        updateStatusFieldsFromDefaultsDB();
}

void KelvaneStatusTabController::showDaemonState(const BackupState& state) {
    showAmounts(state);
    showServiceState(state);
    const AccountData account{state.userEmail(), state.serverURL(), state.computerNumber()};
    // If the link was lost meanwhile, that has been shown, and these answers are the stored ones.
    if (!state.connected())
        return;
    showAccount(account);
    showChecked(*ui_->lowerPriorityButton, state.lowerPriorityMode());
    ui_->lowerPriorityButton->setEnabled(prefs_.flags().accountAuthorized &&
                                         prefs_.prefPaneAccessAuthorized());
    updateMode();
    hasRecentDataFromDaemon_ = true;
}

void KelvaneStatusTabController::showAmounts(const BackupState& state) {
    const BackupAmount backedUp{.size = state.backedupFileSize(),
                                .fileCount = state.backedUpFileCount(),
                                .isSizeKnown = state.backedupFileSizeAvailable(),
                                .isCountKnown = state.backedUpFileCountAvailable()};
    const BackupAmount pending{.size = state.pendingFileSize(),
                               .fileCount = state.pendingFileCount(),
                               .isSizeKnown = state.pendingFileSizeAvailable(),
                               .isCountKnown = state.pendingFileCountAvailable()};
    const AmountTexts texts = amountTexts(backedUp, pending, *prefs_.bundle());
    ui_->backupContainsField->setText(screenText(texts.contains));
    ui_->backupAwaitingField->setText(screenText(texts.awaiting));
    ui_->backupProgress->setValue(percentDone(backedUp.size, pending.size));
}

void KelvaneStatusTabController::showServiceState(const BackupState& state) {
    const ServiceState serviceState = state.serviceState();
    if (serviceState == ServiceState::BadConfiguration) {
        prefs_.setMessageTabString(text(StatusText::BadConfiguration));
        prefs_.changeTabConfiguration(tabconfiguration::messageOnly, true);
        prefs_.setBadConfigurationFlag();
    }
    ui_->backupField->setText(screenText(statusLine(serviceState, state.quotaGB(), *prefs_.bundle())));
    if (serviceState == ServiceState::Idle)
        ui_->backupProgress->stopAnimation();
    else if (serviceState == ServiceState::BackingUp || serviceState == ServiceState::Scanning)
        ui_->backupProgress->startAnimation();
}

void KelvaneStatusTabController::showAccount(const AccountData& account) {
    showAccountText(account.userEmail);
    prefs_.flags().accountAuthorized = true;
    ui_->openAccountButton->setEnabled(account.isComplete());
    ui_->referButton->setEnabled(account.isComplete());
}

void KelvaneStatusTabController::showAccountText(const std::string& email) {
    ui_->accountField->setText(QString::fromStdString(email));
    ui_->accountField->keepToolTip();
    ui_->accountField->setToolTip(plainToolTip(ui_->accountField->text()));
}

void KelvaneStatusTabController::lowerPriorityAction() {
    const auto state = prefs_.backupState();
    if (!state)
        return;
    state->setLowerPriorityMode(ui_->lowerPriorityButton->isChecked());
    state->updateDaemonState(); // shows the new value at once instead of at the next poll
}

void KelvaneStatusTabController::showMenuAction() {
    DefaultsDB::setBoolProperty(ui_->showMenuButton->isChecked(), showMenuKey);
    const std::string failure = postBroadcast(DefaultsDB::propertyChangedNotificationString(),
                                              DefaultsDB::propertyChangedSenderString());
    if (!failure.empty())
        KelvaneCLog("Cannot notify the menu-bar agent of its setting: %@", failure);
}

void KelvaneStatusTabController::openAccountAction() {
    openURLUsingKey("Open Account URL");
}

void KelvaneStatusTabController::referAction() {
    openURLUsingKey("Refer URL");
}

void KelvaneStatusTabController::openURLUsingKey(const std::string& key) {
    const auto state = prefs_.backupState();
    AccountData account;
    if (state)
        account = {state->userEmail(), state->serverURL(), state->computerNumber()};
    // Checks only the server, which every page needs: an account without an e-mail has pages, too.
    if (account.serverURL.empty())
        return KelvaneCLog("Unable to open web pages:  proxy is down");
    const std::string address = webAddress(prefs_.bundle()->information(key).stringValue(), account);
    if (address.empty())
        return KelvaneCLog("The bundle has no web page for \"%@\"", key);
    prefs_.opener().openURL(address, openFailureSheet(prefs_, view_, &context_, address));
}

void KelvaneStatusTabController::writeStatusFieldsToDefaultsDB() {
    isShown_ = false;
    isDisableInProgress_ = false; // the link ends with the pane
    if (sheet_)
        sheet_->reject();
    if (isOperating_)
        prefs_.authorization().cancelUnlock();
    // After an uninstall nothing may be written for the user again; otherwise the stored values stay until
    // there are newer ones.
    if (isUninstalled_ || !hasRecentDataFromDaemon_)
        return;
    DefaultsDB::setStringProperty(ui_->backupField->text().toStdString(), statusKey);
    DefaultsDB::setStringProperty(ui_->backupContainsField->text().toStdString(), containsKey);
    DefaultsDB::setStringProperty(ui_->backupAwaitingField->text().toStdString(), awaitingKey);
    DefaultsDB::setStringProperty(ui_->accountField->text().toStdString(), accountKey);
    DefaultsDB::setIntProperty(ui_->backupProgress->value(), percentKey);
    DefaultsDB::setBoolProperty(ui_->lowerPriorityButton->isChecked(), priorityKey);
}

void KelvaneStatusTabController::updateStatusFieldsFromDefaultsDB() {
    restoreText(statusKey, *ui_->backupField);
    restoreText(containsKey, *ui_->backupContainsField);
    restoreText(awaitingKey, *ui_->backupAwaitingField);
    if (const auto kept = DefaultsDB::stringProperty(accountKey))
        showAccountText(*kept);
    if (const std::int32_t kept = DefaultsDB::intProperty(percentKey); DefaultsDB::lastReadOK())
        ui_->backupProgress->setValue(std::clamp(kept, 0, 100));
    if (const bool kept = DefaultsDB::boolProperty(priorityKey); DefaultsDB::lastReadOK())
        showChecked(*ui_->lowerPriorityButton, kept);
}

} // namespace kelvane
