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

// A window with one file's backup details: what it is, how large, where it lies, when it was backed up.
//
// Comes in two forms. A tab's is made without a file and pointed at one after the other; closing its window
// hides it until the next. The registry's (see InfoWindowRegistry) is made for one file and ends with its
// window.
//
// Main thread only. Keeps its file alive, whatever becomes of the tree that it was in; what is not known of
// it is an empty field. Nothing fails. `prefs` outlives it.
class KelvaneInfoWindowController {
public:
    explicit KelvaneInfoWindowController(const PaneServices& prefs, FileNodeRef fileNode = nullptr);
    ~KelvaneInfoWindowController();
    KelvaneInfoWindowController(const KelvaneInfoWindowController&) = delete;
    KelvaneInfoWindowController& operator=(const KelvaneInfoWindowController&) = delete;

    // Shows the window when it has a file.
    void awakeFromNib();

    // Null empties the window; it is shown in any case.
    void setFileNode(const FileNodeRef& fileNode);
    [[nodiscard]] const FileNodeRef& fileNode() const { return fileNode_; }
    // In front of the other windows, with the keyboard.
    void show();
    void closeInfoWindows();

    // Called each time the window has been closed, by whomever.
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
    // A child of the pane's view, which may go first.
    const QPointer<QDialog> window_;
    const std::unique_ptr<Ui::InfoWindow> ui_;
};

} // namespace kelvane
