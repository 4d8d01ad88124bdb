#pragma once

#include "Platform/Bundle.h"
#include "Platform/Desktop/Authorization/Authorization.h"
#include "Platform/Desktop/Icons.h"
#include "Platform/Desktop/Opener.h"
#include "Platform/Files/FileServices.h"
#include "PreferencePane/Link/BackupState.h"

#include <QIcon>
#include <QString>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

class QWidget;

namespace kelvane {

// Both are posted by the pane controller, for everything that shows the daemon's data.
inline constexpr std::string_view KelvanePrefPaneReadyChangedNotification =
    "KelvanePrefPaneReadyChangedNotification";
inline constexpr std::string_view KelvanePrefPaneDaemonStateChangedNotification =
    "KelvanePrefPaneDaemonStateChangedNotification";

// The permissions for changes, and state that must survive a change of tabs; the pane controller keeps them
// for the tabs.
struct PaneFlags {
    bool enableAuthorized = false;
    bool disableAuthorized = false;
    bool accountAuthorized = false;
    bool manualToggleButtonEnable = false;
    std::int32_t manualToggleButtonState = 0;
};

// The commands of `changeTabConfiguration`; any other value is stored and has no effect.
namespace tabconfiguration {
inline constexpr std::int32_t lastAgain = 0;
inline constexpr std::int32_t normal = 1;
inline constexpr std::int32_t messageOnly = 4;
} // namespace tabconfiguration

// The pane controller as the tabs see it. Outlives the tabs; main thread only.
class PaneServices {
public:
    PaneServices() = default;
    virtual ~PaneServices() = default;
    PaneServices(const PaneServices&) = delete;
    PaneServices& operator=(const PaneServices&) = delete;

    // Null unless the pane is shown. During any call to the daemon the link may be lost, its notification
    // delivered and the pane unselected: hold the shared pointer that you use, and check it again afterwards.
    [[nodiscard]] virtual std::shared_ptr<BackupState> backupState() const = 0;
    [[nodiscard]] bool connected() const {
        const auto state = backupState();
        return state && state->connected();
    }
    // Null while disconnected.
    [[nodiscard]] std::shared_ptr<KelvaneProxy> proxy() const {
        const auto state = backupState();
        return state ? state->proxy() : nullptr;
    }

    [[nodiscard]] virtual const std::shared_ptr<const Bundle>& bundle() const = 0;
    // The bundle's text for the key, or the English text.
    [[nodiscard]] std::string text(std::string_view key, std::string_view english) const {
        return bundle()->localizedString(key, english);
    }
    // For keys that are also the English text.
    [[nodiscard]] std::string text(std::string_view key) const { return text(key, key); }
    [[nodiscard]] QString qtext(std::string_view key, std::string_view english) const {
        return QString::fromStdString(text(key, english));
    }
    [[nodiscard]] QString qtext(std::string_view key) const { return qtext(key, key); }
    [[nodiscard]] virtual Value skinOptions() const = 0; // absent when there are none

    [[nodiscard]] virtual const std::shared_ptr<NotificationCenter>& notifications() const = 0;
    // Calls back while the observers live: on changes of the link, and when the daemon's state may have
    // changed.
    [[nodiscard]] std::array<NotificationCenter::Observer, 2> observeDaemon(
        std::function<void()> readyChanged, std::function<void()> stateChanged = [] {}) const {
        const auto observer = [this](std::string_view name, std::function<void()> changed) {
            return notifications()->observe(name, nullptr,
                                            [call = std::move(changed)](const Notification&) { call(); });
        };
        return {observer(KelvanePrefPaneReadyChangedNotification, std::move(readyChanged)),
                observer(KelvanePrefPaneDaemonStateChangedNotification, std::move(stateChanged))};
    }
    [[nodiscard]] virtual const std::shared_ptr<MainLoop>& mainLoop() const = 0;
    [[nodiscard]] virtual const FileServices& fileServices() const = 0;
    [[nodiscard]] virtual const Icons& icons() const = 0;
    [[nodiscard]] virtual Opener& opener() const = 0;
    [[nodiscard]] virtual Authorization& authorization() const = 0;

    // Selects the first tab, and connects to the daemon unless a link exists.
    virtual void didSelect() = 0;
    // Ends the settings application after the current event.
    virtual void terminateHost() = 0;

    [[nodiscard]] virtual bool prefPaneAccessAuthorized() const = 0;
    [[nodiscard]] virtual PaneFlags& flags() = 0;

    virtual void enableBackupTabItems(bool enable) = 0;
    virtual void enableRestoreTabItems(bool enable) = 0;
    virtual void setMessageTabString(const std::string& message) = 0;
    virtual void setBadConfigurationFlag() = 0;
    virtual void changeTabConfiguration(std::int32_t command, bool forceUpdate) = 0;
    virtual void showRestoreProgress(bool show) = 0;
    [[nodiscard]] virtual bool isInRecoverMode() const = 0;
    virtual void showOnlineHelp() = 0;

    // The pane's whole view, and the pages of the Backup and Restore tabs: empty widgets whose layout holds
    // the view that their controller shows.
    [[nodiscard]] virtual QWidget* mainView() const = 0;
    [[nodiscard]] virtual QWidget* backupTab() const = 0;
    [[nodiscard]] virtual QWidget* restoreTab() const = 0;

    // The bullet of a `backupColor`; red for an unknown one.
    [[nodiscard]] virtual QIcon bulletImageForColor(std::int32_t color) const = 0;
    // Whether a file system is mounted at "/System/Volumes/Data".
    [[nodiscard]] virtual bool existsDriveMountedAtSVD() const = 0;
};

} // namespace kelvane
