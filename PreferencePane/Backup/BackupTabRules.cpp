#include "PreferencePane/Backup/BackupTabRules.h"

#include "Foundation/PathComponents.h"
#include "Support/PathHelpers.h"

#include <algorithm>

namespace kelvane {
namespace {

constexpr ContextText contextTexts[] = {
    {BackupView::Manual, true, "Recover mode manual backup enabled context msg",
     "You can't make changes to your backup while Kelvane is in Recover Mode."},
    {BackupView::Auto, true, "Recover mode auto backup enabled context msg",
     "You can't make changes to your backup while Kelvane is in Recover Mode."},
    {BackupView::Manual, false, "Non-recover mode manual backup enabled context msg",
     "To include a file or folder in your backup, highlight it below, then click the \"Back this up\" "
     "button."},
    {BackupView::Auto, false, "Non-recover mode auto backup enabled context msg",
     "To exclude folders from your automatic backup, click the plus sign (+) under the list of folders that "
     "will not be backed up. Or, click \"Manually Manage My Backup\" to include or exclude individual "
     "files."},
};

} // namespace

const ContextText& contextTextFor(BackupView view, bool isRecovering) {
    return *std::ranges::find_if(contextTexts, [&](const ContextText& text) {
        return text.view == view && text.isRecovering == isRecovering;
    });
}

TabItems tabItemsFor(const PaneConditions& conditions) {
    TabItems items;
    if (!conditions.isAuthorized)
        return items;
    items.saysRecovering = conditions.isRecovering;
    items.reloadsFirstColumn = conditions.isRecovering || conditions.isConnected;
    if (!conditions.isRecovering) {
        items.enablesExclusions = true;
        items.enablesTable = true;
        items.enablesManualControls = conditions.isConnected && conditions.isEnabled;
    }
    return items;
}

ExcludeSegments excludeSegmentsFor(std::size_t selectedRows, bool isRecovering, bool isAuthorized) {
    if (isRecovering) {
        if (selectedRows == 1 && !isAuthorized)
            return {false, false, std::nullopt};
        return {false, false, selectedRows == 1};
    }
    if (!isAuthorized)
        return {false, false, false};
    return {std::nullopt, selectedRows >= 1, selectedRows == 1};
}

void MarkCounts::count(const FileNodeRef& node, int change) {
    if (node && (node->simpleFlags() & Backup_Simple_Checked) != 0)
        return;
    unchecked_ += change;
    if (node && node->backupColor() == Backup_Color_Yellow)
        waiting_ += change;
}

std::optional<std::string> excludablePath(const std::string& path, const Volumes& volumes) {
    std::string entered = enteredPath(path, volumes);
    if (kelv_isVolumePath(stringWithKelvaneVolumePath(entered, volumes)))
        return std::nullopt;
    return entered;
}

const std::string* matchingPattern(std::string_view path, std::span<const std::string> patterns) {
    const auto found = std::ranges::find_if(
        patterns, [&](const std::string& pattern) { return kelv_isEqualToWildcardString(path, pattern); });
    return found == patterns.end() ? nullptr : &*found;
}

} // namespace kelvane
