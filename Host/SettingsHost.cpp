#include "Host/SettingsHost.h"

#include "Host/WindowMemory.h"

#include <QCoreApplication>
#include <iostream>

namespace kelvane::host {
namespace {

QIcon iconOf(const PaneDescription& pane) {
    return QIcon(pane.icon.empty() ? missingPanePicture : QString::fromStdString(pane.icon));
}

QString noticeFor(AuthorizationChoice choice) {
    switch (choice) {
    case AuthorizationChoice::Polkit: return {};
    case AuthorizationChoice::Granted:
        return SettingsWindow::tr("Trial run: changes are allowed without asking for an administrator.");
    case AuthorizationChoice::Denied: return SettingsWindow::tr("Trial run: changes are always refused.");
    }
    return {};
}

} // namespace

SettingsHost::SettingsHost(Options options, std::shared_ptr<MainLoop> mainLoop,
                           std::vector<PaneDescription> panes)
    : options_(std::move(options)), mainLoop_(std::move(mainLoop)) {
    window_.setNotice(noticeFor(options_.authorization));
    for (PaneDescription& pane : panes) {
        window_.addPane(iconOf(pane), QString::fromStdString(pane.title));
        lives_.push_back(std::make_unique<PaneLife>(std::move(pane), *this));
    }
    QObject::connect(&window_, &SettingsWindow::closing, &window_, [this] { end(); });
}

SettingsHost::~SettingsHost() {
    next_.reset();
    lives_.clear(); // destroyed before the window, which would delete their views
}

void SettingsHost::show() {
    if (options_.screenshotFolder.empty())
        restoreWindow(window_);
    window_.show();
    if (lives_.empty())
        return showThatThereIsNone();
    // Loads nothing before the window is visible.
    next_ = std::make_unique<AfterPaint>(window_.pageArea(), *mainLoop_, [this] {
        QObject::connect(&window_, &SettingsWindow::paneChosen, &window_,
                         [this](int index) { choose(static_cast<std::size_t>(index)); });
        if (options_.endsWhenPainted)
            return end();
        choose(static_cast<std::size_t>(window_.chosenPane()));
    });
    window_.choosePane(0);
}

void SettingsHost::showThatThereIsNone() {
    window_.showMessage(SettingsWindow::tr("There are no panes"),
                        SettingsWindow::tr("Install one, or name its bundle with --pane."), {});
    if (options_.screenshotFolder.empty())
        return;
    std::cerr << "kelvane-settings: no screenshots: there are no panes\n";
    mainLoop_->post([this] { end(1); });
}

void SettingsHost::end(int status) {
    if (std::exchange(isEnding_, true))
        return;
    next_.reset();
    if (shown_ != nullptr)
        shown_->unselect();
    if (options_.screenshotFolder.empty())
        rememberWindow(window_);
    QCoreApplication::exit(status);
}

std::unique_ptr<Authorization> SettingsHost::makeAuthorization(const RightDefinition& right) {
    return kelvane::makeAuthorization(options_.authorization, mainLoop_, right);
}

void SettingsHost::terminate() {
    mainLoop_->post([this] { end(); });
}

void SettingsHost::choose(std::size_t index) {
    PaneLife* const life = index < lives_.size() ? lives_[index].get() : nullptr;
    if (isEnding_ || life == nullptr || life == shown_)
        return;
    next_.reset();
    if (shown_ != nullptr)
        shown_->unselect();
    shown_ = life;
    open(*life);
}

void SettingsHost::open(PaneLife& life) {
    window_.setWindowIcon(iconOf(life.description()));
    if (QWidget* const view = life.view())
        window_.showPane(view);
    else
        showProblem(life);
    next_ = std::make_unique<AfterPaint>(window_.pageArea(), *mainLoop_, [this, &life] { select(life); });
}

void SettingsHost::select(PaneLife& life) {
    if (isEnding_)
        return;
    life.select();
    showProblem(life);
    obeyOptions(life);
}

void SettingsHost::showProblem(const PaneLife& life) {
    if (life.problem().empty())
        return;
    const PaneDescription& pane = life.description();
    window_.showMessage(SettingsWindow::tr("“%1” cannot be shown").arg(QString::fromStdString(pane.title)),
                        QString::fromStdString(life.problem()), QString::fromStdString(pane.bundle->path()));
}

void SettingsHost::obeyOptions(PaneLife& life) {
    if (const std::string tab = std::exchange(options_.tab, {}); !tab.empty())
        if (life.pane() == nullptr || !life.pane()->selectTab(tab))
            std::cerr << "kelvane-settings: there is no tab \"" << tab << "\"\n";
    if (!options_.screenshotFolder.empty() && !screenshots_)
        screenshots_ = std::make_unique<ScreenshotRun>(window_, life, options_.screenshotFolder, *mainLoop_,
                                                       [this](int status) { end(status); });
}

} // namespace kelvane::host
