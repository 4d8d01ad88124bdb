#include "LocalDaemon/Rules/MountedSelection.h"

#include "Foundation/CleanPath.h"

namespace kelvane {

Verdict MountedSelection::verdictFor(std::string_view path) const {
    const Verdict verdict = kelvane::verdictFor(*rules_, path);
    if (!verdict.isIn())
        return verdict;
    for (std::string_view at = path; at != verdict.rule; at = folderOf(at))
        if (mounts_->contains(at))
            return {Verdict::Reason::OtherFileSystem, std::string(at)};
    return verdict;
}

std::optional<Verdict> MountedSelection::ruleAt(std::string_view path) const {
    std::optional<Verdict> rule = kelvane::ruleAt(*rules_, path);
    if (!rule && mounts_->contains(path))
        rule = Verdict{Verdict::Reason::OtherFileSystem, std::string(path)};
    return rule;
}

std::string MountedSelection::mountPointOf(std::string_view path) const {
    const auto mount = mountAround(*mounts_, path);
    return mount == mounts_->end() ? "/" : mount->first;
}

std::vector<std::string> MountedSelection::beginnings() const {
    std::vector<std::string> paths = selectedPaths(*rules_);
    std::erase_if(paths, [&](const std::string& path) {
        return !verdictFor(path).isIn() || (path != "/" && verdictFor(folderOf(path)).isIn());
    });
    return paths;
}

std::set<std::string> MountedSelection::scanRoots() const {
    std::set<std::string> roots;
    for (const std::string& path : beginnings())
        roots.emplace(rules_->automaticMode ? path : folderOf(path));
    return roots;
}

std::set<std::string> MountedSelection::mountsOfScan() const {
    std::set<std::string> points;
    for (const std::string& root : scanRoots()) {
        points.insert(mountPointOf(root));
        const std::string inside = withSeparator(root);
        for (auto at = mounts_->upper_bound(inside); at != mounts_->end() && at->first.starts_with(inside);
             ++at)
            points.insert(at->first);
    }
    return points;
}

} // namespace kelvane
