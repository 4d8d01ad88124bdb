#pragma once

#include <cstdint>
#include <string>

class QWidget;

namespace kelvane {

// The controllers of the tabs and of the Info window as the pane controller sees them. All on the main
// thread. Each is made, with its widgets, before any of them wakes; `awakeFromNib` then runs once.

class StatusTab {
public:
    virtual ~StatusTab() = default;
    [[nodiscard]] virtual QWidget* view() = 0; // owned by the controller until the tab takes it
    virtual void awakeFromNib() = 0;
    // The pane was shown.
    virtual void didSelectPrefPane() = 0;
    // The pane was locked or unlocked.
    virtual void refreshStatusModePopup() = 0;
    // The pane is about to be hidden.
    virtual void writeStatusFieldsToDefaultsDB() = 0;
    [[nodiscard]] virtual bool inRecoverMode() const = 0;
    // Opens the page that the bundle's information names under the key.
    virtual void openURLUsingKey(const std::string& key) = 0;
};

// Paths are the daemon's, with the boot volume itself as "/".
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
    [[nodiscard]] virtual QWidget* progressView() = 0; // stands in the tab area's place while a restore runs
    virtual void awakeFromNib() = 0;
    virtual void enableTabItems(bool enable) = 0;
    virtual void fileChanged(const std::string& path) = 0;
    virtual void restoredFileName(const std::string& name) = 0;
    virtual void restoredFileSize(std::uint64_t size) = 0; // bytes
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
