#pragma once

#include "Common/FileNode/FileNode.h"
#include "PreferencePane/Services/PaneServices.h"

#include <QDialog>
#include <QPointer>
#include <functional>
#include <memory>

namespace Ui {
class InfoWindow;
}

namespace kelvane {

// A window with the backup details of one file: kind, size, location and backup date.
//
// It comes in two forms. The tabs' window is created without a file and shows one after the other; closing it
// hides it until the next. A window of the registry (see InfoWindowRegistry) is created for one file and
// destroyed when closed.
//
// Main thread only. Keeps its file alive, even when the file's tree is destroyed; unknown facts are empty
// fields. Nothing fails. `prefs` must outlive it.
class KelvaneInfoWindowController {
public:
    explicit KelvaneInfoWindowController(const PaneServices& prefs, FileNodeRef fileNode = nullptr);
    ~KelvaneInfoWindowController();
    KelvaneInfoWindowController(const KelvaneInfoWindowController&) = delete;
    KelvaneInfoWindowController& operator=(const KelvaneInfoWindowController&) = delete;

    // Shows the window if it has a file.
    void awakeFromNib();

    // Null clears the window; the window is shown in either case.
    void setFileNode(const FileNodeRef& fileNode);
    [[nodiscard]] const FileNodeRef& fileNode() const { return fileNode_; }
    // Raises the window and gives it the focus.
    void show();
    void closeInfoWindows();

    // Called each time the window has been closed, by the user or the program.
    void setWindowWillClose(std::function<void()> action) { windowWillClose_ = std::move(action); }
    [[nodiscard]] QDialog* window() const { return window_; }

private:
    void updateUI();
    void updateTexts();
    void updateLocation();
    void whereFieldAction();

    const PaneServices& prefs_;
    FileNodeRef fileNode_;
    std::function<void()> windowWillClose_;
    // A child of the pane's view, which may delete it first.
    const QPointer<QDialog> window_;
    const std::unique_ptr<Ui::InfoWindow> ui_;
};

} // namespace kelvane
