#include "PreferencePane/Browser/BrowserPaths.h"

#include "Common/FileNode/FileNode.h"
#include "Common/FileNode/FileNodeFlags.h"
#include "Foundation/PathComponents.h"
#include "Support/Logging.h"
#include "Support/PathHelpers.h"

#include <algorithm>
#include <span>

namespace kelvane {
namespace {

// The components "/" and "Volumes" precede those that columns show.
constexpr std::size_t firstShownComponent = 2;

// The keys of the bundle's texts, which are also the English texts.
constexpr std::string_view notBackedUp = "Not backed up";
constexpr std::pair<std::int32_t, std::string_view> stateTexts[] = {
    {Backup_Color_Green, "Backed up"},
    {Backup_Color_Yellow, "Waiting to be backed up"},
    {Backup_Color_Gray, "Partly backed up"},
    {Backup_Color_Blue, "Included in your backup"},
};

BrowserRow rowTitled(int column, const std::string& title, const ColumnBrowser& browser) {
    for (int row = 0; row < browser.rowCount(column); ++row)
        if (browser.cell(column, row)->title() == title)
            return browser.rowAt(column, row);
    return {};
}

void enable(const BrowserRow& row, ColumnBrowser& browser, bool isEnabled) {
    const KelvaneBrowserCell* const shown = browser.cell(row);
    if (shown == nullptr || shown->isEnabled() == isEnabled)
        return;
    KelvaneBrowserCell cell = *shown;
    cell.setEnabled(isEnabled);
    browser.setCell(row, cell);
}

void updateRestoreRow(const BrowserRow& row, int column, const FileNodeRef& node, ColumnBrowser& browser) {
    if (node && node->isBackup())
        enable(row, browser, node->backupDate().has_value());
    else if (node)
        browser.reloadColumn(column);
}

void updateBackupRow(const BrowserRow& row, const FileNodeRef& node, ColumnBrowser& browser,
                     const PaneServices& services) {
    const KelvaneBrowserCell* const shown = browser.cell(row);
    if (shown == nullptr)
        return;
    KelvaneBrowserCell cell = *shown;
    setBackupColor(cell, node ? node->backupColor() : Backup_Color_Undefined, services);
    browser.setCell(row, cell);
}

} // namespace

std::string columnToPath(int column, const ColumnBrowser& inBrowser) {
    const KelvaneBrowserCell* const cell = inBrowser.selectedCell(column);
    return cell == nullptr ? std::string() : cell->getFilePath();
}

int columnForPath(const std::string& path, ColumnBrowser& inBrowser, const Volumes& volumes,
                  BrowserRow* atCell) {
    const std::vector<std::string> components = pathComponents(stringWithKelvaneVolumePath(path, volumes));
    const int last = static_cast<int>(components.size()) - static_cast<int>(firstShownComponent) - 1;
    for (int column = 0; column <= last; ++column) {
        const BrowserRow row =
            rowTitled(column, components[static_cast<std::size_t>(column) + firstShownComponent], inBrowser);
        if (!row.isValid())
            return -1;
        enable(row, inBrowser, true);
        if (column == last) {
            if (atCell != nullptr)
                *atCell = row;
            return column;
        }
        if (inBrowser.selectedCell(column) != inBrowser.cell(row))
            return -1;
    }
    return -1;
}

bool fileChanged(const std::string& path, ColumnBrowser& inBrowser, bool isRestore,
                 const PaneServices& services) {
    BrowserRow row;
    const int column = columnForPath(path, inBrowser, *services.fileServices().fileSystem().volumes(), &row);
    if (column < 0 && path != "/" && path != kelv_svdPath())
        return false;
    if (!row.isValid()) {
        KelvaneCLogError("Error:  fileChanged for %@, column %d does not match browser cell", path, column);
        inBrowser.reloadColumn(column);
        return true;
    }
    const FileNodeRef node = KelvaneFileNode::fileNodeForPath(path, services.proxy());
    if (isRestore)
        updateRestoreRow(row, column, node, inBrowser);
    else
        updateBackupRow(row, node, inBrowser, services);
    return true;
}

void setBackupColor(KelvaneBrowserCell& cell, std::int32_t color, const PaneServices& services) {
    const auto* const known =
        std::ranges::find(stateTexts, color, &std::pair<std::int32_t, std::string_view>::first);
    cell.setBulletImage(services.bulletImageForColor(color));
    cell.setStateText(services.text(known == std::end(stateTexts) ? notBackedUp : known->second));
}

} // namespace kelvane
