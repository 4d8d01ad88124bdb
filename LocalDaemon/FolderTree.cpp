#include "LocalDaemon/FolderTree.h"

#include "Foundation/PathComponents.h"

#include <algorithm>

namespace kelvane {
namespace {

std::unique_ptr<Folder> newFolder(const std::string& name, Folder& parent) {
    auto folder = std::make_unique<Folder>();
    folder->name = name;
    folder->parent = &parent;
    return folder;
}

} // namespace

FolderTree::FolderTree(std::string root) {
    root_.name = std::move(root);
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

Folder* FolderTree::find(std::string_view path) {
    if (!path.starts_with(root_.name))
        return nullptr;
    path.remove_prefix(root_.name.size());
    if (!path.empty() && path.front() != '/' && root_.name != "/")
        return nullptr;
    Folder* folder = &root_;
    for (const std::string& name : pathComponents(path)) {
        if (name == "/")
            continue;
        const auto found =
            std::lower_bound(folder->subfolders.begin(), folder->subfolders.end(), name,
                             [](const auto& each, const auto& wanted) { return each->name < wanted; });
        if (found == folder->subfolders.end() || (*found)->name != name)
            return nullptr;
        folder = found->get();
    }
    return folder;
}

// Recursion is as deep as a path can be long.
void FolderTree::forEach(Folder& folder, const std::function<void(Folder&)>& visit) {
    visit(folder);
    for (const auto& subfolder : folder.subfolders)
        forEach(*subfolder, visit);
}

FolderTree::Difference FolderTree::update(Folder& folder, const FolderListing& listing) {
    Difference difference;
    totals_ -= folder.own;
    totals_ += listing.own;
    folder.own = listing.own;

    // Both lists are sorted: one walk along the two.
    std::vector<std::unique_ptr<Folder>> before;
    before.swap(folder.subfolders);
    auto old = before.begin();
    const auto removeUntil = [&](const std::string* name) {
        for (; old != before.end() && (!name || (*old)->name < *name); ++old)
            difference.removed.push_back(std::move(*old));
    };
    folder.subfolders.reserve(listing.subfolders.size());
    for (const std::string& name : listing.subfolders) {
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
        forEach(*removed, [this](Folder& each) { totals_ -= each.own; });
    return difference;
}

} // namespace kelvane
