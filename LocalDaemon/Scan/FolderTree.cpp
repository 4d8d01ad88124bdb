#include "LocalDaemon/Scan/FolderTree.h"

#include "Foundation/CleanPath.h"
#include "Foundation/PathComponents.h"

#include <algorithm>
#include <utility>

namespace kelvane {
namespace {

std::unique_ptr<Folder> newFolder(const std::string& name, Folder& parent) {
    auto folder = std::make_unique<Folder>();
    folder->name = name;
    folder->parent = &parent;
    return folder;
}

// Returns the position of the folder with this name, or where to insert it.
auto siblingNamed(std::vector<std::unique_ptr<Folder>>& siblings, std::string_view name) {
    return std::lower_bound(siblings.begin(), siblings.end(), name,
                            [](const auto& each, std::string_view wanted) { return each->name < wanted; });
}

Folder* findBelow(Folder& root, std::string_view path) {
    Folder* folder = &root;
    for (const std::string& name : pathComponents(path)) {
        if (name == "/")
            continue;
        const auto found = siblingNamed(folder->subfolders, name);
        if (found == folder->subfolders.end() || (*found)->name != name)
            return nullptr;
        folder = found->get();
    }
    return folder;
}

} // namespace

Folder& FolderTree::addRoot(const std::string& path) {
    const std::scoped_lock guard(mutex_);
    auto& root = roots_[path];
    if (!root)
        root = std::make_unique<Folder>();
    root->name = path;
    return *root;
}

FolderCounts FolderTree::totals() const {
    FolderCounts totals;
    for (const auto& [path, root] : roots_)
        totals += root->below;
    return totals;
}

std::optional<FolderCounts> FolderTree::countsAt(std::string_view path) const {
    const std::scoped_lock guard(mutex_);
    const Folder* const folder = find(path);
    if (!folder || !folder->isListed)
        return std::nullopt;
    FolderCounts counts = folder->below;
    const std::string inside = withSeparator(path);
    for (auto root = roots_.upper_bound(inside); root != roots_.end() && root->first.starts_with(inside);
         ++root)
        counts += root->second->below; // A root is in no other tree.
    return counts;
}

std::string FolderTree::pathOf(const Folder& folder) {
    std::vector<const Folder*> chain;
    for (const Folder* at = &folder; at; at = at->parent)
        chain.push_back(at);
    std::string path;
    for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
        if (!path.empty() && path.back() != '/')
            path += '/';
        path += (*at)->name;
    }
    return path;
}

// Searches from the nearest root outwards, since a root may be below another one without being in its
// tree.
Folder* FolderTree::find(std::string_view path) const {
    for (std::string_view at = path; at.starts_with('/'); at = folderOf(at)) {
        if (const auto root = roots_.find(at); root != roots_.end())
            if (Folder* const folder = findBelow(*root->second, path.substr(at.size())))
                return folder;
        if (at == "/")
            break;
    }
    return nullptr;
}

// The recursion is limited by the length of a path.
void FolderTree::forEach(Folder& folder, const std::function<void(Folder&)>& visit) {
    visit(folder);
    for (const auto& subfolder : folder.subfolders)
        forEach(*subfolder, visit);
}

FolderTree::Difference FolderTree::update(Folder& folder, const FolderContents& contents) {
    const std::scoped_lock guard(mutex_);
    Difference difference;
    recount(&folder, std::exchange(folder.own, contents.own), contents.own);
    folder.isListed = true;

    // Both lists are sorted, so they are merged in one pass.
    std::vector<std::unique_ptr<Folder>> before;
    before.swap(folder.subfolders);
    auto old = before.begin();
    const auto removeUntil = [&](const std::string* name) {
        for (; old != before.end() && (!name || (*old)->name < *name); ++old)
            difference.removed.push_back(std::move(*old));
    };
    folder.subfolders.reserve(contents.subfolders.size());
    for (const std::string& name : contents.subfolders) {
        removeUntil(&name);
        if (old != before.end() && (*old)->name == name) {
            folder.subfolders.push_back(std::move(*old++));
        } else {
            folder.subfolders.push_back(newFolder(name, folder));
            difference.added.push_back(folder.subfolders.back().get());
        }
    }
    removeUntil(nullptr);
    for (const auto& removed : difference.removed)
        recount(&folder, removed->below, {});
    return difference;
}

std::unique_ptr<Folder> FolderTree::remove(Folder& folder) {
    const std::scoped_lock guard(mutex_);
    recount(folder.parent, folder.below, {});
    if (!folder.parent)
        return std::move(roots_.extract(folder.name).mapped());
    auto& siblings = folder.parent->subfolders;
    const auto place = siblingNamed(siblings, folder.name);
    std::unique_ptr<Folder> removed = std::move(*place);
    siblings.erase(place);
    return removed;
}

void FolderTree::recount(Folder* folder, const FolderCounts& before, const FolderCounts& now) {
    for (; folder; folder = folder->parent) {
        folder->below -= before;
        folder->below += now;
    }
}

} // namespace kelvane
