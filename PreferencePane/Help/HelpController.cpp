#include "PreferencePane/Help/HelpController.h"

#include "Foundation/Format.h"
#include "Platform/SpecialFolders.h"
#include "Platform/SystemVersion.h"
#include "PreferencePane/Help/ChatInvitation.h"
#include "PreferencePane/Services/ButtonActions.h"
#include "PreferencePane/Services/FormTexts.h"
#include "PreferencePane/Services/OpenFailure.h"
#include "PreferencePane/Services/Sheet.h"
#include "Support/Logging.h"

#include <QDialog>
#include <ui_EmailWindow.h>
#include <ui_HelpTab.h>
#include <ui_HelpWindow.h>
#include <utility>

namespace kelvane {
namespace {

QString screen(const std::string& text) {
    return QString::fromStdString(text);
}

// Makes a read-only field look like text.
void showAsText(QLineEdit& field) {
    field.setFrame(false);
    QPalette palette;
    palette.setBrush(QPalette::Base, Qt::transparent);
    field.setPalette(palette);
}

void showAsText(QTextBrowser& field) {
    constexpr int mostLines = 3;
    field.viewport()->setAutoFillBackground(false);
    field.document()->setDocumentMargin(0);
    field.setMaximumHeight(mostLines * field.fontMetrics().lineSpacing());
}

// Shows a sheet of the pane's window, which accepts no input until the sheet is closed.
void showSheet(QDialog& sheet) {
    sheet.open();
}

void endSheet(QDialog& sheet) {
    sheet.hide();
}

} // namespace

KelvaneHelpController::KelvaneHelpController(PaneServices& prefs, ReportTools tools)
    : prefs_(prefs),
      tools_(std::move(tools)),
      tab_(std::make_unique<Ui::HelpTab>()),
      help_(std::make_unique<Ui::HelpWindow>()),
      email_(std::make_unique<Ui::EmailWindow>()),
      view_(new QWidget),
      helpWindow_(new QDialog(view_)),
      emailWindow_(new QDialog(view_)) {
    tab_->setupUi(view_);
    help_->setupUi(helpWindow_);
    email_->setupUi(emailWindow_);
    showAsText(*email_->emailToField);
    showAsText(*email_->emailFromField);
    showAsText(*email_->chatMessage);
    localizeForms();
    connectControls();
}

KelvaneHelpController::~KelvaneHelpController() {
    if (view_ && !view_->parentWidget())
        delete view_.data();
}

void KelvaneHelpController::localizeForms() {
    localizeForm(*view_, *prefs_.bundle()); // includes the sheets, which are its children
    for (int item = 0; item < email_->emailCategory->count(); ++item) {
        const std::string title = email_->emailCategory->itemText(item).toStdString();
        email_->emailCategory->setItemText(item, prefs_.qtext(title));
    }
}

void KelvaneHelpController::connectControls() {
    connectButtons<KelvaneHelpController>(
        *this, context_,
        {
            {tab_->helpButton, &KelvaneHelpController::showHelpSheetAction},
            {help_->closeButton, &KelvaneHelpController::closeHelpSheetAction},
            {help_->onlineHelpButton, &KelvaneHelpController::viewOnlineHelpAction},
            {help_->showLogButton, &KelvaneHelpController::showLogAction},
            {help_->sendAnEmailButton, &KelvaneHelpController::showEmailSheetAction},
            {email_->cancelButton, &KelvaneHelpController::cancelEmailAction},
            {email_->emailButton, &KelvaneHelpController::sendEmailAction},
        });
    QObject::connect(email_->emailCategory, &QComboBox::activated, &context_,
                     [this](int index) { emailCategoryAction(index); });
    QObject::connect(email_->chatMessage, &QTextBrowser::anchorClicked, &context_, [this] {
        prefs_.opener().openURL(chatLink_, openFailureSheet(prefs_, emailWindow_, &context_, chatLink_));
    });
}

void KelvaneHelpController::awakeFromNib() {
    observers_ = prefs_.observeDaemon([this] { readyChangedNotification(); });
    QObject::connect(email_->emailTextView, &HelpViewEmailTextView::didProcessEditing, &context_,
                     [this](int changeInLength) { messageEditedNotification(changeInLength); });
    readyChangedNotification();
    const std::string phone = information("SupportPhoneNumber");
    tab_->supportPhone->setText(screen(phone));
    tab_->supportPhone->setVisible(!phone.empty());
    tab_->supportPhoneCaption->setVisible(!phone.empty());
}

void KelvaneHelpController::readyChangedNotification() {
    help_->sendAnEmailButton->setEnabled(prefs_.connected());
}

void KelvaneHelpController::showHelpSheetAction() {
    if (prefs_.skinOptions()["bypassHelpSheetToWeb"].boolValue())
        prefs_.showOnlineHelp();
    else
        showSheet(*helpWindow_);
}

void KelvaneHelpController::closeHelpSheetAction() {
    endSheet(*helpWindow_);
}

void KelvaneHelpController::viewOnlineHelpAction() {
    endSheet(*helpWindow_);
    prefs_.showOnlineHelp();
}

std::string KelvaneHelpController::logPath() const {
    return expandingTilde(information("Kelvane Log Path"));
}

void KelvaneHelpController::showLogAction() {
    endSheet(*helpWindow_);
    const std::string log = logPath();
    if (prefs_.fileServices().fileSystem().exists(log))
        prefs_.opener().openFile(log, openFailureSheet(prefs_, view_, &context_, log));
}

void KelvaneHelpController::showEmailSheetAction() {
    endSheet(*helpWindow_);
    const auto state = prefs_.backupState();
    const std::string to = information("Support mailto name") + '@' + information("Support mailto domain");
    email_->emailToField->setText(screen(to));
    email_->emailFromField->setText(screen(state ? state->userEmail() : std::string()));
    email_->emailTextView->resetString();
    email_->emailButton->setEnabled(false);
    email_->emailCategory->setCurrentIndex(0);
    email_->emailCategory->setFocus();
    const FileSystem& files = prefs_.fileServices().fileSystem();
    email_->emailLogCaption->setVisible(files.isReadable(logPath()) && !files.isDirectory(logPath()));
    showChatMessage(state ? state->serverURL() : std::string());
    showSheet(*emailWindow_);
}

void KelvaneHelpController::showChatMessage(const std::string& server) {
    const QString address = chatAddress(screen(information("Support Chat URL")), screen(server));
    chatLink_ = address.toStdString();
    showChatInvitation(*email_->chatMessage,
                       prefs_.qtext("Support Chat Message",
                                    "Click to chat with a customer support representative: \r        "),
                       address);
    email_->chatMessage->setVisible(!address.isEmpty());
}

void KelvaneHelpController::messageEditedNotification(int changeInLength) {
    if (changeInLength == 0)
        return;
    HelpViewEmailTextView& text = *email_->emailTextView;
    text.setCharsInTextField(std::int64_t{text.charsInTextField()} + changeInLength);
    emailCategoryAction(email_->emailCategory->currentIndex());
}

void KelvaneHelpController::emailCategoryAction(int index) {
    email_->emailButton->setEnabled(email_->emailTextView->charsInTextField() > 0 && index > 0);
}

void KelvaneHelpController::cancelEmailAction() {
    endSheet(*emailWindow_);
}

void KelvaneHelpController::sendEmailAction() {
    endSheet(*emailWindow_);
    email_->emailButton->setEnabled(false); // a second click may already be queued
    const IncidentReport report = incidentReport();
    if (!report.hasAccount())
        return;
    const ReportOutcome outcome = [&] {
        const BusySheet busy(*view_, *prefs_.mainLoop(), prefs_.qtext("Sending your report…"),
                             prefs_.qtext("Cancel"));
        return sendReport(report, logPath(), tools_, busy);
    }();
    if (!outcome.isSent() && outcome.end != BusySheet::End::ApplicationEnds)
        offerAgain(outcome.failure);
    // The form has said that the log will be sent.
    else if (!outcome.missingLog.empty() && !email_->emailLogCaption->isHidden())
        openSheet(
            view_,
            {.message = prefs_.qtext("Report Without Log Message", "Your report was sent without the log."),
             .informative = screen(outcome.missingLog),
             .buttons = {prefs_.qtext("OK")}},
            &context_, [](int) {});
}

// Shows the form again with the text in it. `failure` is empty when the user has cancelled.
void KelvaneHelpController::offerAgain(const std::string& failure) {
    emailCategoryAction(email_->emailCategory->currentIndex());
    showSheet(*emailWindow_);
    if (failure.empty())
        return;
    KelvaneCLog("The report was not sent: %@", failure);
    const std::string information = formatTranslated(
        prefs_.text("Report Failed Information",
                    "%@. What you have written is kept: check your network connection, then send "
                    "it again."),
        failure);
    openSheet(emailWindow_,
              {.message = prefs_.qtext("Report Failed Message", "Your report could not be sent."),
               .informative = screen(information),
               .buttons = {prefs_.qtext("OK")}},
              &context_, [](int) {});
}

IncidentReport KelvaneHelpController::incidentReport() const {
    IncidentReport report;
    report.mailtoName = information("Support mailto name");
    report.mailtoDomain = information("Support mailto domain");
    report.version = information("CFBundleShortVersionString");
    report.operatingSystem = operatingSystemText(packedSystemVersion);
    report.category = email_->emailCategory->currentText().toStdString();
    report.comment = email_->emailTextView->string().toStdString();
    if (const auto state = prefs_.backupState()) {
        report.userEmail = state->userEmail();
        report.computerNumber = state->computerNumber();
        report.serverURL = state->serverURL();
    }
    return report;
}

} // namespace kelvane
