// The pane's entry point, which creates its parts and connects them.

#include "Platform/Desktop/DesktopFileServices.h"
#include "Platform/Desktop/PanePlugin.h"
#include "PreferencePane/Backup/BackupTabController.h"
#include "PreferencePane/Help/HelpController.h"
#include "PreferencePane/Info/InfoWindowRegistry.h"
#include "PreferencePane/PaneController.h"
#include "PreferencePane/Restore/RestoreTabController.h"
#include "PreferencePane/Status/StatusTabController.h"
#include "Support/FileSizeFormatter.h"

namespace kelvane {
namespace {

PanePlatform desktopPlatform(const PaneBundle& bundle) {
    PanePlatform platform;
    platform.bundle = bundle;
    platform.notifications = std::make_shared<NotificationCenter>();
    platform.fileSystem = std::make_unique<LocalFileSystem>(LocalFileSystem::Names::Text);
    platform.accounts = std::make_unique<SystemAccounts>();
    platform.icons = std::make_unique<Icons>(bundle);
    platform.fileServices =
        std::make_unique<DesktopFileServices>(*platform.fileSystem, *platform.accounts, *platform.icons);
    return platform;
}

} // namespace
} // namespace kelvane

extern "C" {

__attribute__((visibility("default"))) extern const std::uint32_t kelvanePaneInterfaceVersion =
    kelvane::paneInterfaceVersion;

__attribute__((visibility("default"))) kelvane::Pane* kelvaneMakePane(kelvane::PaneHost& host,
                                                                      const kelvane::PaneBundle& bundle) {
    using namespace kelvane;
    FileSizeFormatter::initializeUsingBundle(*bundle);
    auto pane = std::make_unique<ComKelvanePreferencePanePref>(host, desktopPlatform(bundle));
    PaneParts parts;
    auto info = std::make_unique<InfoWindowRegistry>(*pane);
    parts.backup = KelvaneBackupTabController::create(*pane, info->ofTabs());
    parts.restore = std::make_unique<KelvaneRestoreTabController>(*pane, info->ofTabs());
    parts.info = std::move(info);
    parts.status = std::make_unique<KelvaneStatusTabController>(*pane);
    parts.help = std::make_unique<KelvaneHelpController>(*pane);
    pane->setParts(std::move(parts));
    return pane.release();
}
}
