#include "PreferencePane/Info/LocationItems.h"

#include "Foundation/PathComponents.h"

namespace kelvane {

std::vector<LocationItem> locationItems(std::string_view path, const std::string& computerName) {
    if (path.empty())
        return {{LocationItem::Kind::Unknown, "--", {}}};
    std::vector<LocationItem> items;
    std::string folder = deleteLastPathComponent(path);
    // `depth` counts the root, so the outermost folder below it has depth 2.
    for (std::size_t depth = pathComponents(folder).size(); depth > 0; --depth) {
        if (depth > 2)
            items.push_back({LocationItem::Kind::Folder, lastPathComponent(folder), folder});
        else
            items.push_back({LocationItem::Kind::Computer, computerName, {}});
        folder = deleteLastPathComponent(folder);
        if (folder == "/")
            break;
    }
    return items;
}

} // namespace kelvane
