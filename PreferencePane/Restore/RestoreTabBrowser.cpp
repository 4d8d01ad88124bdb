// The tree of files in the backup, as the daemon reports it.

#include "Common/FileNode/FileNode.h"
#include "Foundation/PathComponents.h"
#include "PreferencePane/Browser/BrowserPaths.h"
#include "PreferencePane/Browser/BrowserVolumes.h"
#include "PreferencePane/Restore/RestoreTabController.h"

namespace kelvane {

// An empty answer gives an empty column; when the link is lost during the call, the rows stay.
std::optional<BrowserRows> KelvaneRestoreTabController::createRowsForColumn(ColumnBrowser& browser,
                                                                            int column) {
    const auto daemon = prefs_.proxy();
    if (!daemon)
        return std::nullopt;
    auto rows = column == 0 ? volumeRows(daemon) : itemRows(columnToPath(column - 1, browser), daemon);
    return prefs_.proxy() == daemon ? rows : std::nullopt;
}

// Includes volumes that are not mounted: their files can be restored to another place.
std::optional<BrowserRows>
KelvaneRestoreTabController::volumeRows(const std::shared_ptr<KelvaneProxy>& daemon) {
    bool isAnswered = false;
    const Value dictionaries = daemon->invoke("childrenDictionariesForPath:", {""}, &isAnswered);
    rootColumnCount_ = static_cast<std::uint32_t>(dictionaries.array().size());
    if (!isAnswered)
        return std::nullopt;
    const auto volumes = prefs_.fileServices().fileSystem().volumes();
    const QIcon disk = qIcon(prefs_.fileServices().iconOfDisk());
    BrowserRows rows;
    for (const FileNodeRef& node : KelvaneFileNode::fileNodesForDictionaries(dictionaries)) {
        const std::string name = node->fileName();
        if (name.empty())
            continue;
        const bool hasChildren =
            !daemon->invoke("childrenDictionariesForPath:", {name}, &isAnswered).array().empty();
        if (!isAnswered)
            return std::nullopt;
        if (name == "/" && !hasChildren && prefs_.existsDriveMountedAtSVD())
            continue;
        VolumeRow row = volumeRowFor(name, *volumes);
        KelvaneBrowserCell& cell = rows.emplace_back(std::move(row.title), std::move(row.path));
        cell.setImage(disk);
        cell.setEnabled(hasChildren);
    }
    return rows;
}

std::optional<BrowserRows>
KelvaneRestoreTabController::itemRows(const std::string& folder,
                                      const std::shared_ptr<KelvaneProxy>& daemon) const {
    if (folder.empty())
        return std::nullopt;
    bool isAnswered = false;
    const Value dictionaries = daemon->invoke("childrenDictionariesForPath:", {folder}, &isAnswered);
    if (!isAnswered)
        return std::nullopt;
    const auto parent = KelvaneFileNode::create(lastPathComponent(folder), true);
    parent->setPath(folder);
    BrowserRows rows;
    for (const FileNodeRef& child : KelvaneFileNode::fileNodesForDictionaries(dictionaries)) {
        parent->addChild(child); // a node without its own path gets it from its parent
        const std::string name = child->fileName();
        if (name.empty() || !child->showInRestoreBrowser(prefs_.fileServices()))
            continue;
        KelvaneBrowserCell& cell = rows.emplace_back(name, folder + '/' + name);
        cell.setLeaf(!child->isDirectory());
        cell.setEnabled(child->backupDate() || child->isDirectory());
    }
    return rows;
}

// A file that is no longer on the disk has the icon of its kind.
IconHandle KelvaneRestoreTabController::imageForCell(const KelvaneBrowserCell& cell) {
    const FileNodeRef node = KelvaneFileNode::create(cell.title(), !cell.isLeaf());
    node->setPath(cell.getFilePath());
    return node->image(prefs_.fileServices());
}

} // namespace kelvane
