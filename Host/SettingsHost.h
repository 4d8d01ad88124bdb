#pragma once

#include "Host/AfterPaint.h"
#include "Host/Options.h"
#include "Host/Panes/PaneLife.h"
#include "Host/ScreenshotRun.h"
#include "Host/SettingsWindow.h"

#include <memory>
#include <vector>

namespace kelvane::host {

// The application: shows the window, selects a pane once the window is painted, and drives the life cycle of
// every pane. Main thread only; ends the QApplication.
class SettingsHost : public PaneHost {
public:
    SettingsHost(Options options, std::shared_ptr<MainLoop> mainLoop, std::vector<PaneDescription> panes);
    ~SettingsHost() override;
    SettingsHost(const SettingsHost&) = delete;
    SettingsHost& operator=(const SettingsHost&) = delete;

    [[nodiscard]] SettingsWindow& window() { return window_; }
    void show();
    // Unselects the current pane, saves the window's geometry unless this is a screenshot run, and leaves the
    // event loop with the exit status.
    void end(int status = 0);

    [[nodiscard]] std::shared_ptr<MainLoop> mainLoop() override { return mainLoop_; }
    [[nodiscard]] std::unique_ptr<Authorization> makeAuthorization(const RightDefinition& right) override;
    [[nodiscard]] Opener& opener() override { return opener_; }
    void terminate() override;
    void widenWindow(int) override {}

private:
    void showThatThereIsNone();
    void choose(std::size_t index);
    void open(PaneLife& life);
    void select(PaneLife& life);
    // Shows the reason in place of a pane that has failed.
    void showProblem(const PaneLife& life);
    void obeyOptions(PaneLife& life);

    Options options_; // the options not yet carried out
    const std::shared_ptr<MainLoop> mainLoop_;
    DesktopOpener opener_;
    SettingsWindow window_;
    std::vector<std::unique_ptr<PaneLife>> lives_;
    PaneLife* shown_ = nullptr;
    std::unique_ptr<AfterPaint> next_; // the step that waits for the window to be painted
    std::unique_ptr<ScreenshotRun> screenshots_;
    bool isEnding_ = false;
};

} // namespace kelvane::host
