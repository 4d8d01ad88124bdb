#pragma once

#include "Platform/Bundle.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace kelvane {

// The texts of the Status tab: their keys in the bundle's string table, and the English texts for a bundle
// without them. A carriage return is a line break. Texts in the tab's form are their own keys.
enum class StatusText : std::size_t {
    Version,
    VersionName,
    ModeEnabled,
    ModePaused,
    ModeRecover,
    ModeDisabled,
    EnterRecoverAlert,
    ExitRecoverAlert,
    FileStatus,
    Unavailable,
    BadConfiguration,
    BackupFailed,
    TemporarilyUnavailable,
    AccountOverQuota,
    StoppedOverQuota,
    UninstallMessage,
    UninstallInformative,
    UninstallButton,
    UninstallCancelButton,
    UninstallErrorTitle,
    UninstallErrorMessage,
    EnableFailed,
    DisableFailed,
    NotHandedOver,
    ToolMissing,
    ToolEnded,
    NoRoomForTool,
};

struct StatusTextRow {
    StatusText name;
    std::string_view key;
    std::string_view english;
};

inline constexpr auto statusTexts = std::to_array<StatusTextRow>({
    {StatusText::Version, "Version", "Version %@"},
    {StatusText::VersionName, "Version name", "Version"}, // for screen readers
    {StatusText::ModeEnabled, "DaemonModeEnabled",
     "Kelvane is actively monitoring your Mac for new and changed files to back up. (To view or change what "
     "is backed up, click the Backup tab.)"},
    {StatusText::ModePaused, "DaemonModePaused",
     "Kelvane is paused. Your backup will automatically resume in %d hours."},
    {StatusText::ModeRecover, "DaemonModeRecover",
     "Kelvane will not make any changes to your backup while in Recover Mode. (To select files to restore, "
     "click the Restore tab.)"},
    {StatusText::ModeDisabled, "DaemonModeDisabled",
     "While Kelvane is disabled, no files will be backed up or restored."},
    {StatusText::EnterRecoverAlert, "Alert: enter recover mode",
     "Putting Kelvane in Recover Mode freezes your backup so that you'll have time to restore all the files "
     "you need. While in Recover Mode, no files will be added to or deleted from your backup.\r\rAre you "
     "sure you want to put Kelvane in Recover Mode? "},
    {StatusText::ExitRecoverAlert, "Alert: exit recover mode",
     "Recover Mode freezes your backup so that you will have time to restore all the files you need. When "
     "you exit Recover Mode, any files that have been missing for more than 30 days will be deleted from "
     "your backup. You should not exit Recover Mode until you are finished restoring the files you "
     "need.\r\rAre you sure you want to exit Recover Mode and resume your backup? "},
    {StatusText::FileStatus, "File status formatter", "%@ (%d files)"},
    {StatusText::Unavailable, "unavailable", "(Information unavailable)"},
    {StatusText::BadConfiguration, "badConfigMsgString",
     "Kelvane cannot back up your files because of a configuration error.\r\rPlease log in to your account "
     "on the web and reinstall Kelvane from there."},
    {StatusText::BackupFailed, "Backup failed message", "Backup failed"},
    {StatusText::TemporarilyUnavailable, "Temporarily unavailable", "Temporarily unavailable"},
    {StatusText::AccountOverQuota, "Account over quota message", "Account over quota"},
    {StatusText::StoppedOverQuota, "Account over quota string with quota value",
     "Stopped. (Over %ld GB limit)"},
    {StatusText::UninstallMessage, "Uninstall message text", "Are you sure you want to uninstall Kelvane?"},
    {StatusText::UninstallInformative, "Uninstall informative text",
     "Uninstalling Kelvane will leave your documents, photos, music and other irreplaceable files vulnerable "
     "to loss from hard drive crashes, theft and other data disasters. Are you sure you want to stop backing "
     "up with Kelvane?"},
    {StatusText::UninstallButton, "Uninstall button", "Uninstall"},
    {StatusText::UninstallCancelButton, "Uninstall cancel button", "Cancel"},
    {StatusText::UninstallErrorTitle, "Uninstall error dialog title", "The un-installer was unable to run"},
    {StatusText::UninstallErrorMessage, "Uninstall error dialog message",
     "Re-authenticate and try again. If this continues to fail, re-install Kelvane and then try to "
     "un-install again."},
    {StatusText::EnableFailed, "Enable error dialog title", "Kelvane could not be enabled"},
    {StatusText::DisableFailed, "Disable error dialog title", "Kelvane could not be disabled"},
    {StatusText::NotHandedOver, "Tool error: authorization not handed over",
     "The authorization cannot be written to %@: %@. Remove that file and try again."},
    {StatusText::ToolMissing, "Tool error: program missing",
     "The program %@ is missing. Re-install Kelvane."},
    {StatusText::ToolEnded, "Tool error: program ended", "%@ ended with status %d."},
    {StatusText::NoRoomForTool, "Tool error: program not started",
     "%@ cannot be started: the system has no room for another process."},
});

// The form's translatable texts: captions, items, buttons, check boxes, and the accessible names of values.
inline constexpr auto statusFormTexts = std::to_array<std::string_view>({
    "Backup mode",
    "Enabled",
    "Paused",
    "Recover",
    "Disabled",
    "Uninstall Kelvane…",
    "Backup status",
    "Backup progress",
    "Backup contains",
    "Awaiting backup",
    "Account",
    "Open Account",
    "Refer a Friend",
    "Give backups a lower priority",
    "Show Kelvane status in the menu bar",
    "Mode explanation",
});

[[nodiscard]] constexpr const StatusTextRow& rowOf(StatusText text) {
    return statusTexts.at(static_cast<std::size_t>(text));
}

static_assert(
    [] {
        for (std::size_t index = 0; index < statusTexts.size(); ++index)
            if (statusTexts.at(index).name != static_cast<StatusText>(index))
                return false;
        return true;
    }(),
    "the rows stand in the order of their names");

[[nodiscard]] inline std::string statusText(const Bundle& bundle, StatusText text) {
    return bundle.localizedString(rowOf(text).key, rowOf(text).english);
}

} // namespace kelvane
