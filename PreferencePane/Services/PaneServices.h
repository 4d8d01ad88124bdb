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

// Both with the pane controller as sender, for whoever shows something of the daemon's.
inline constexpr std::string_view KelvanePrefPaneReadyChangedNotification =
    "KelvanePrefPaneReadyChangedNotification";
inline constexpr std::string_view KelvanePrefPaneDaemonStateChangedNotification =
    "KelvanePrefPaneDaemonStateChangedNotification";

// What may be changed by whom, and what has to survive a change of tabs; kept by the pane controller for the
// tabs.
struct PaneFlags {
    bool enableAuthorized = false;
    bool disableAuthorized = false;
    bool accountAuthorized = false;
    bool manualToggleButtonEnable = false;
    std::int32_t manualToggleButtonState = 0;
};

// The commands of `changeTabConfiguration`; any other is stored and changes nothing.
namespace tabconfiguration {
inline constexpr std::int32_t lastAgain = 0;
inline constexpr std::int32_t normal = 1;
inline constexpr std::int32_t messageOnly = 4;
} // namespace tabconfiguration

// The pane controller as the tabs see it. Outlives them; main thread only.
class PaneServices {
public:
    PaneServices() = default;
    virtual ~PaneServices() = default;
    PaneServices(const PaneServices&) = delete;
    PaneServices& operator=(const PaneServices&) = delete;

    // Null unless the pane is shown. Any call that goes to the daemon may end with the link gone, its notice
    // delivered and the pane unselected: hold what you use, and look again at what you hold after it.
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
    // The bundle's text for the key, else the English one.
    [[nodiscard]] std::string text(std::string_view key, std::string_view english) const {
        return bundle()->localizedString(key, english);
    }
    // For keys that are their own English text.
    [[nodiscard]] std::string text(std::string_view key) const { return text(key, key); }
    [[nodiscard]] QString qtext(std::string_view key, std::string_view english) const {
        return QString::fromStdString(text(key, english));
    }
    [[nodiscard]] QString qtext(std::string_view key) const { return qtext(key, key); }
    [[nodiscard]] virtual Value skinOptions() const = 0; // absent when there are none

    [[nodiscard]] virtual const std::shared_ptr<NotificationCenter>& notifications() const = 0;
    // Calls back for as long as the observers live: when the link has come or gone, and when the daemon's
    // state may be another.
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

    // Selects the first tab, and starts the link to the daemon where there is none; what is there goes on.
    virtual void didSelect() = 0;
    // Ends the settings application once the current event has been handled.
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

    // The pane's whole view, and the pages of the Backup and Restore tabs: each an empty widget whose layout
    // holds the one view that its controller shows.
    [[nodiscard]] virtual QWidget* mainView() const = 0;
    [[nodiscard]] virtual QWidget* backupTab() const = 0;
    [[nodiscard]] virtual QWidget* restoreTab() const = 0;

    // By `backupColor`; red for what has none.
    [[nodiscard]] virtual QIcon bulletImageForColor(std::int32_t color) const = 0;
    // Whether something is mounted at "/System/Volumes/Data".
    [[nodiscard]] virtual bool existsDriveMountedAtSVD() const = 0;
};

} // namespace kelvane
