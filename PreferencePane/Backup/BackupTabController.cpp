// Chooses the view of the Backup tab and enables its controls. The list of exclusions is in
// BackupTabExclusions.cpp, the browser in BackupTabBrowser.cpp.

#include "PreferencePane/Backup/BackupTabController.h"

#include "Foundation/CleanPath.h"
#include "PreferencePane/Backup/ChoosePanel.h"
#include "PreferencePane/Backup/ui_AutoBackupView.h"
#include "PreferencePane/Backup/ui_DisabledBackupView.h"
#include "PreferencePane/Backup/ui_ManualBackupView.h"
#include "PreferencePane/Browser/BrowserPaths.h"
#include "PreferencePane/Services/ButtonActions.h"
#include "PreferencePane/Services/TabPage.h"
#include "Support/Logging.h"
#include "Support/PathHelpers.h"

namespace kelvane {
namespace {

constexpr const char* viewNames[] = {"disabled", "auto-backup", "manual-backup"};

} // namespace

std::unique_ptr<KelvaneBackupTabController>
KelvaneBackupTabController::create(PaneServices& prefs, KelvaneInfoWindowController& infoController) {
    std::unique_ptr<KelvaneBackupTabController> controller(
        new KelvaneBackupTabController(prefs, infoController));
    return controller->watcher_ ? std::move(controller) : nullptr;
}

KelvaneBackupTabController::KelvaneBackupTabController(PaneServices& prefs,
                                                       KelvaneInfoWindowController& infoController)
    : prefs_(prefs),
      infoController_(infoController),
      auto_(std::make_unique<Ui::AutoBackupView>()),
      manual_(std::make_unique<Ui::ManualBackupView>()),
      visibleFiles_(prefs.fileServices().fileSystem()),
      throttle_(
          prefs.mainLoop(), [this](int column) { manual_->manualBrowser->reloadColumn(column); },
          ReloadThrottle::steadyNow),
      watcher_(FolderWatcher::create(
          prefs.mainLoop(), [this](const std::string& path) { throttle_.columnChanged(columnOf(path)); })) {
    Ui::DisabledBackupView disabled;
    views_ = {{BackupView::Disabled, makeView(disabled, prefs_.backupTab(), *prefs_.bundle())},
              {BackupView::Auto, makeView(*auto_, prefs_.backupTab(), *prefs_.bundle())},
              {BackupView::Manual, makeView(*manual_, prefs_.backupTab(), *prefs_.bundle())}};
    showContext(false);
    manual_->manualBrowser->setTitle(prefs_.qtext("Disks"));
    showToggleState(togglestate::add);
    auto_->excludeTable->setServices(prefs_);
    connectControls();
}

KelvaneBackupTabController::~KelvaneBackupTabController() {
    watcher_.reset();
    delete panel_.data();
    for (const auto& [which, view] : views_)
        delete view.data();
}

void KelvaneBackupTabController::connectControls() {
    connectButtons<KelvaneBackupTabController>(
        *this, context_,
        {
            {auto_->autoManualButton, &KelvaneBackupTabController::autoManualAction},
            {manual_->manualAutoButton, &KelvaneBackupTabController::autoManualAction},
            {manual_->manualToggleButton, &KelvaneBackupTabController::manualToggleAction},
        });
    const std::pair<QAbstractButton*, ExcludeSegment> segments[] = {
        {auto_->addSegment, ExcludeSegment::Add},
        {auto_->removeSegment, ExcludeSegment::Remove},
        {auto_->infoSegment, ExcludeSegment::Info}};
    for (const auto& [button, segment] : segments) {
        button->setToolTip(button->accessibleName());
        QObject::connect(button, &QAbstractButton::clicked, &context_,
                         [this, segment = segment] { excludeButtonAction(segment); });
    }
    ExcludeTable* const table = auto_->excludeTable;
    table->setAcceptsDrop([this] { return !prefs_.isInRecoverMode() && prefs_.prefPaneAccessAuthorized(); });
    QObject::connect(table, &ExcludeTable::tableViewSelectionDidChange, &context_,
                     [this] { tableViewSelectionDidChange(); });
    QObject::connect(table, &ExcludeTable::dropped, &context_,
                     [this](const std::vector<std::string>& paths) { addExcludePaths(paths); });
    // `click` does nothing on a disabled button, so its key has no effect then, either.
    QObject::connect(table, &ExcludeTable::insertPressed, auto_->addSegment, &QAbstractButton::click);
    QObject::connect(table, &ExcludeTable::deletePressed, auto_->removeSegment, &QAbstractButton::click);
    QObject::connect(manual_->manualBrowser, &ColumnBrowser::chosen, &context_,
                     [this] { manualBrowserAction(); });
}

void KelvaneBackupTabController::awakeFromNib() {
    manual_->manualBrowser->setDelegate(*this);
    observers_ = prefs_.observeDaemon([this] { readyChangedNotification(); },
                                      [this] { daemonStateChangedNotification(); });
}

BackupView KelvaneBackupTabController::wantedView() const {
    return backupViewFor(prefs_.connected(), manualBackupMode_);
}

void KelvaneBackupTabController::setCurrentView() {
    QWidget& page = *prefs_.backupTab();
    const BackupView view = wantedView();
    QWidget* const target = views_[view];
    KelvaneCLog("BackupTab:setCurrentView: possibly switching to %s view (%@); current = %@",
                viewNames[static_cast<std::size_t>(view)], nameOfView(target), nameOfView(shownView(page)));
    if (view == BackupView::Auto)
        folderChanged({});
    // `folderChanged` asked the daemon: if the link was lost meanwhile, another view is shown already.
    if (target == nullptr || target == shownView(page) || view != wantedView())
        return;
    KelvaneCLog("BackupTab:setCurrentView: Really switching to new view (%@)", nameOfView(target));
    showView(page, *target);
    areFoldersStale_ |= view == BackupView::Manual;
}

void KelvaneBackupTabController::setManualBackupMode(bool isManual) {
    if (std::exchange(manualBackupMode_, isManual) != isManual)
        setCurrentView();
}

void KelvaneBackupTabController::autoManualAction() {
    const auto state = prefs_.backupState();
    if (!state || (manualBackupMode_ && state->isQuotaLimited()))
        return;
    const bool isManual = !manualBackupMode_;
    setManualBackupMode(isManual);
    state->setAutomaticMode(!isManual);
    refreshFolders(); // the new mode has other rules
}

// The selection is read last, because that asks the daemon. It was not read while items could not be marked.
void KelvaneBackupTabController::enableTabItems(bool enabled) {
    tabsEnabled_ = enabled;
    setCurrentView();
    const auto state = prefs_.backupState();
    manual_->manualAutoButton->setVisible(!state || !state->isQuotaLimited());
    const TabItems items = tabItemsFor(
        {prefs_.connected(), prefs_.prefPaneAccessAuthorized(), prefs_.isInRecoverMode(), tabsEnabled_});
    for (QWidget* const control :
         {static_cast<QWidget*>(auto_->addSegment), static_cast<QWidget*>(auto_->removeSegment),
          static_cast<QWidget*>(auto_->autoManualButton)})
        control->setEnabled(items.enablesExclusions);
    manual_->manualToggleButton->setEnabled(items.enablesManualControls);
    manual_->manualAutoButton->setEnabled(items.enablesManualControls);
    const bool couldMark =
        std::exchange(prefs_.flags().manualToggleButtonEnable, items.enablesManualControls);
    if (items.enablesTable)
        auto_->excludeTable->setEnabled(true);
    if (items.saysRecovering)
        showContext(*items.saysRecovering);
    if (items.reloadsFirstColumn)
        manual_->manualBrowser->reloadColumn(0);
    if (!items.enablesExclusions)
        closePanel();
    refreshFolders();
    const bool hasChoice = !chosenPaths_.empty() || !manual_->manualBrowser->selectedFilePaths().empty();
    if (items.enablesManualControls && !couldMark && hasChoice)
        manualBrowserAction();
}

// Closes the panel, because what the user chooses in it could not be excluded.
void KelvaneBackupTabController::closePanel() {
    if (ChoosePanel* const panel = panel_)
        panel->reject();
}

void KelvaneBackupTabController::showContext(bool isRecovering) {
    const std::pair<BackupView, QLabel*> lines[] = {
        {BackupView::Auto, auto_->currentAutoBackupViewContextMsg},
        {BackupView::Manual, manual_->currentManualBackupViewContextMsg},
    };
    for (const auto& [view, line] : lines) {
        const ContextText& context = contextTextFor(view, isRecovering);
        line->setText(prefs_.qtext(context.key, context.english));
    }
}

void KelvaneBackupTabController::readyChangedNotification() {
    if (prefs_.connected()) {
        KelvaneCLog("BackupTabController:readyChangedNotification: connected");
        policyExcludeList_.clear();
        areFoldersStale_ = true;
        folderChanged({});
    } else {
        KelvaneCLog("BackupTabController:readyChangedNotification: not connected");
        watcher_->stopWatching();
        isExcludePolicyRead_ = false;
        closePanel();
    }
    setCurrentView();
    manual_->manualBrowser->reloadColumn(0);
}

void KelvaneBackupTabController::daemonStateChangedNotification() {
    const auto state = prefs_.backupState();
    if (!state)
        return tableViewSelectionDidChange();
    if (volumesMayHaveChanged(state->serviceState()))
        manual_->manualBrowser->reloadColumn(0);
    if (state->backupState() >= backupstate::rulesAreLoaded && policyExcludeList_.empty())
        readPolicyExcludeList();
    const auto daemon = prefs_.proxy();
    bool isAnswered = false;
    const Value isAutomatic = daemon ? daemon->invoke("automaticMode", {}, &isAnswered) : Value();
    if (isAnswered)
        setManualBackupMode(!isAutomatic.boolValue());
    refreshFolders();
    tableViewSelectionDidChange();
}

void KelvaneBackupTabController::readPolicyExcludeList() {
    const auto daemon = prefs_.proxy();
    if (!daemon)
        return;
    const Value patterns = daemon->call<"policyExcludeList">();
    const auto volumes = prefs_.fileServices().fileSystem().volumes();
    const auto before = std::exchange(policyExcludeList_, {});
    for (const Value& pattern : patterns.array())
        policyExcludeList_.push_back(stringWithKelvaneVolumePath(pattern.stringValue(), *volumes));
    if (KelvaneLogEnabled())
        KelvaneCLog("policyExcludeList: %@",
                    Value(Array(policyExcludeList_.begin(), policyExcludeList_.end())));
    if (prefs_.proxy() != daemon)
        return;
    isExcludePolicyRead_ = true;
    areFoldersStale_ |= policyExcludeList_ != before;
    refreshFolders();
}

bool KelvaneBackupTabController::isPathExcludedByPolicy(const std::string& path) const {
    const std::string* const pattern = matchingPattern(path, policyExcludeList_);
    if (pattern != nullptr)
        KelvaneCLog("path: %@ is excluded by: %@", path, *pattern);
    return pattern != nullptr;
}

void KelvaneBackupTabController::fileChanged(const std::string& path) {
    if (!manualBackupMode_)
        return;
    kelvane::fileChanged(path, *manual_->manualBrowser, false, prefs_);
    if (path != everything)
        return;
    areFoldersStale_ = true; // "/" stands for all paths
    readPolicyExcludeList();
}

} // namespace kelvane
