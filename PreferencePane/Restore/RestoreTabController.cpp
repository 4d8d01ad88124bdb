// Chooses the view of the Restore tab and enables its controls. The tree is in RestoreTabBrowser.cpp,
// destinations in RestoreTabLocation.cpp, jobs in RestoreTabProgress.cpp.

#include "PreferencePane/Restore/RestoreTabController.h"

#include "PreferencePane/Browser/BrowserPaths.h"
#include "PreferencePane/Browser/BrowserVolumes.h"
#include "PreferencePane/Restore/ui_DisabledRestoreView.h"
#include "PreferencePane/Restore/ui_RestoreProgressView.h"
#include "PreferencePane/Restore/ui_RestoreView.h"
#include "PreferencePane/Services/ButtonActions.h"
#include "PreferencePane/Services/FormTexts.h"
#include "PreferencePane/Services/TabPage.h"
#include "Support/Logging.h"

#include <QEvent>
#include <QFileDialog>
#include <functional>
#include <utility>

namespace kelvane {
namespace {

QWidget* makeDisabledView(const PaneServices& prefs) {
    Ui::DisabledRestoreView form;
    return makeView(form, prefs.restoreTab(), *prefs.bundle());
}

// Calls `disappeared` when its view is hidden or removed, but not when the window is minimized.
class HideWatch : public QObject {
public:
    HideWatch(QObject* parent, std::function<void()> disappeared)
        : QObject(parent), disappeared_(std::move(disappeared)) {}
    bool eventFilter(QObject* /*watched*/, QEvent* event) override {
        if (event->type() == QEvent::Hide && !event->spontaneous())
            disappeared_();
        return false;
    }

private:
    const std::function<void()> disappeared_;
};

// Makes a read-only field look like text on the tab's background.
void makePlain(QLineEdit& field) {
    QPalette palette;
    palette.setColor(QPalette::Base, Qt::transparent);
    field.setPalette(palette);
}

// Sets the description, too, because a screen reader would read the placeholder even when it is not shown.
void show(QLineEdit& field, const std::string& text) {
    if (const QString line = oneLine(text); line != field.text()) {
        field.setText(line);
        field.setCursorPosition(0);
    }
    field.setAccessibleDescription(text.empty() ? field.placeholderText() : field.accessibleName());
}

} // namespace

KelvaneRestoreTabController::KelvaneRestoreTabController(PaneServices& prefs,
                                                         KelvaneInfoWindowController& infoController)
    : prefs_(prefs),
      infoController_(infoController),
      ui_(std::make_unique<Ui::RestoreView>()),
      progress_(std::make_unique<Ui::RestoreProgressView>()),
      restoreView_(makeView(*ui_, prefs.restoreTab(), *prefs.bundle())),
      disabledRestoreView_(makeDisabledView(prefs)),
      progressView_(makeView(*progress_, nullptr, *prefs.bundle())) {
    for (int item = 0; item < ui_->destinationButton->count(); ++item) {
        const std::string name = ui_->destinationButton->itemText(item).toStdString();
        ui_->destinationButton->setItemText(item, prefs_.qtext(name));
    }
    makePlain(*ui_->filenameField);
    makePlain(*ui_->dateField);
    ui_->restoreBrowser->setTitle(prefs_.qtext("Backed-up files"));
    ui_->restoreBrowser->setEmptyText(prefs_.qtext("Nothing has been backed up yet."));
    showNoCountsYet();
    progress_->restoreProgress->setIndeterminate(true);
    connectControls();
}

KelvaneRestoreTabController::~KelvaneRestoreTabController() {
    delete alert_.data();
    delete panel_.data();
    delete restoreView_.data();
    delete disabledRestoreView_.data();
    if (progressView_ && !progressView_->parentWidget())
        delete progressView_.data();
}

void KelvaneRestoreTabController::connectControls() {
    connectButtons<KelvaneRestoreTabController>(
        *this, context_,
        {
            {ui_->getInfoButton, &KelvaneRestoreTabController::getInfoAction},
            {ui_->restoreButton, &KelvaneRestoreTabController::restoreAction},
            {ui_->restoreAssistantButton, &KelvaneRestoreTabController::restoreAssistantAction},
            {progress_->restoreCancelButton, &KelvaneRestoreTabController::restoreCancelAction},
        });
    // A screen reader toggles the button without a click.
    QObject::connect(progress_->restorePauseButton, &QAbstractButton::toggled, &context_,
                     [this] { restorePauseAction(); });
    progressView_->setFocusProxy(progress_->restorePauseButton);
    progressView_->installEventFilter(new HideWatch(&context_, [this] { progressDisappeared(); }));
    QObject::connect(ui_->restoreBrowser, &ColumnBrowser::chosen, &context_,
                     [this] { restoreBrowserAction(); });
}

void KelvaneRestoreTabController::awakeFromNib() {
    ui_->restoreBrowser->setDelegate(*this);
    observers_ = prefs_.observeDaemon([this] { readyChangedNotification(); },
                                      [this] { daemonStateChangedNotification(); });
}

void KelvaneRestoreTabController::setCurrentView() {
    const bool isConnected = prefs_.connected();
    QWidget* const target = isConnected ? restoreView_ : disabledRestoreView_;
    const QWidget* const current = shownView(*prefs_.restoreTab());
    KelvaneCLog("RestoreTab:setCurrentView: possibly switching to %s view (%@); current = %@",
                isConnected ? "normal" : "disabled", nameOfView(target), nameOfView(current));
    if (target == nullptr || target == current)
        return;
    KelvaneCLog("RestoreTab:setCurrentView: Really switching to new view (%@)", nameOfView(target));
    showView(*prefs_.restoreTab(), *target);
}

void KelvaneRestoreTabController::readyChangedNotification() {
    if (!prefs_.connected()) {
        closeSheets(); // what the user chooses there could not be restored
        registeredForUIEvents_ = false;
    }
    setCurrentView();
    // Reloads the open folders too, because no notifications arrived for changes while disconnected.
    for (int column = 0; column <= ui_->restoreBrowser->lastColumn(); ++column)
        ui_->restoreBrowser->reloadColumn(column);
    if (prefs_.connected() && selectedFilePaths() != chosenPaths_)
        restoreBrowserAction();
}

void KelvaneRestoreTabController::daemonStateChangedNotification() {
    const auto state = prefs_.backupState();
    if (state && state->connected() && volumesMayHaveChanged(state->serviceState()) && rootColumnCount_ == 0)
        ui_->restoreBrowser->reloadColumn(0);
}

std::vector<std::string> KelvaneRestoreTabController::selectedFilePaths() const {
    return ui_->restoreBrowser->selectedFilePaths();
}

void KelvaneRestoreTabController::restoreBrowserAction() {
    const auto look = showSelection();
    if (!look)
        return;
    ui_->getInfoButton->setEnabled(look->getInfo);
    ui_->restoreButton->setEnabled(look->restore);
}

// None when the link was lost during the call: that has been handled, and the current state is shown.
std::optional<SelectionLook> KelvaneRestoreTabController::showSelection() {
    const std::vector<std::string> paths = chosenPaths_ = selectedFilePaths();
    const auto daemon = prefs_.proxy();
    const FileNodeRef first = paths.empty() ? nullptr : KelvaneFileNode::fileNodeForPath(paths[0], daemon);
    if (prefs_.proxy() != daemon)
        return std::nullopt;
    const std::optional<Date> date = first ? first->backupDate() : std::nullopt;
    const SelectionLook look = selectionLookFor(paths.size(), date.has_value(), tabItemsAreEnabled_,
                                                prefs_.prefPaneAccessAuthorized());
    if (!look.namePlaceholder.empty())
        ui_->filenameField->setPlaceholderText(prefs_.qtext(look.namePlaceholder));
    ui_->dateField->setPlaceholderText(prefs_.qtext(look.datePlaceholder));
    show(*ui_->filenameField, first && paths.size() == 1 ? first->fileName() : std::string());
    show(*ui_->dateField, date ? prefs_.fileServices().dateAndTime(*date) : std::string());
    return look;
}

// The description of the selection comes first, because it asks the daemon. Each button is set only once:
// disabling it in between would take the focus from it.
void KelvaneRestoreTabController::enableTabItems(bool enabled) {
    setCurrentView();
    tabItemsAreEnabled_ = enabled;
    static_cast<void>(showSelection());
    const RestoreControls controls = restoreControlsFor(selectedFilePaths().size(), tabItemsAreEnabled_,
                                                        prefs_.prefPaneAccessAuthorized());
    ui_->destinationButton->setEnabled(controls.destination);
    ui_->restoreAssistantButton->setEnabled(controls.assistant);
    ui_->restoreButton->setEnabled(controls.restore);
    ui_->getInfoButton->setEnabled(controls.getInfo);
}

void KelvaneRestoreTabController::getInfoAction() {
    const std::vector<std::string> paths = selectedFilePaths();
    if (paths.empty())
        return;
    if (const FileNodeRef node = KelvaneFileNode::fileNodeForPath(paths[0], true, prefs_.proxy()))
        infoController_.setFileNode(node);
}

void KelvaneRestoreTabController::restoreAssistantAction() {
    const auto state = prefs_.backupState();
    if (!state)
        return;
    if (!std::exchange(registeredForUIEvents_, true))
        state->setStateHandler();
    if (const auto daemon = state->proxy())
        daemon->call<"showRestoreWizard">();
}

void KelvaneRestoreTabController::fileChanged(const std::string& path) {
    kelvane::fileChanged(path, *ui_->restoreBrowser, true, prefs_);
}

} // namespace kelvane
