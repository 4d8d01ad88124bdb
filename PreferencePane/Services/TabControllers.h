#pragma once

#include <cstdint>
#include <string>

class QWidget;

namespace kelvane {

// The interfaces through which the pane controller drives the controllers of the tabs and of the Info window.
// Main thread only. All are created, with their widgets, before `awakeFromNib` is called once on each.

class StatusTab {
public:
    virtual ~StatusTab() = default;
    [[nodiscard]] virtual QWidget* view() = 0; // owned by the controller until the tab adopts it
    virtual void awakeFromNib() = 0;
    // The pane was shown.
    virtual void didSelectPrefPane() = 0;
    // The pane was locked or unlocked.
    virtual void refreshStatusModePopup() = 0;
    // The pane is about to be hidden.
    virtual void writeStatusFieldsToDefaultsDB() = 0;
    [[nodiscard]] virtual bool inRecoverMode() const = 0;
    // Opens the web page that the bundle's information lists under the key.
    virtual void openURLUsingKey(const std::string& key) = 0;
};

// Paths are in the daemon's form; the boot volume itself is "/".
class BackupTab {
public:
    virtual ~BackupTab() = default;
    virtual void awakeFromNib() = 0;
    virtual void enableTabItems(bool enable) = 0;
    virtual void fileChanged(const std::string& path) = 0;
    virtual void folderChanged(const std::string& path) = 0;
};

class RestoreTab {
public:
    virtual ~RestoreTab() = default;
    [[nodiscard]] virtual QWidget* progressView() = 0; // shown in place of the tab area while a restore runs
    virtual void awakeFromNib() = 0;
    virtual void enableTabItems(bool enable) = 0;
    virtual void fileChanged(const std::string& path) = 0;
    virtual void restoredFileName(const std::string& name) = 0;
    virtual void restoredFileSize(std::uint64_t size) = 0; // in bytes
    virtual void restoredPendingCount(std::uint32_t count) = 0;
};

class HelpTab {
public:
    virtual ~HelpTab() = default;
    [[nodiscard]] virtual QWidget* view() = 0;
    virtual void awakeFromNib() = 0;
};

class InfoWindows {
public:
    virtual ~InfoWindows() = default;
    virtual void closeInfoWindows() = 0;
};

} // namespace kelvane
