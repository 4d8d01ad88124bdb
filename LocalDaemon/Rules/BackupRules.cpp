#include "LocalDaemon/Rules/BackupRules.h"

#include "Foundation/CleanPath.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"
#include "Support/WildcardMatch.h"

#include <algorithm>

namespace kelvane {
namespace {

using Mark = PathRules::Mark;

// The size of a rule in addition to its path.
constexpr std::size_t sizeOfRule = 16;

// Returns the range of an ordered container whose keys are below the path.
template <class Container>
auto below(Container& container, std::string_view path) {
    const std::string first = withSeparator(path);
    std::string behind = first;
    ++behind.back();
    return std::pair(container.upper_bound(first), container.lower_bound(behind));
}

bool hasMarkBelow(const PathRules& paths, std::string_view path, Mark wanted) {
    const auto [begin, end] = below(paths.marks, path);
    return std::any_of(begin, end, [wanted](const auto& mark) { return mark.second == wanted; });
}

bool isAutomatic(const BackupRules& rules, std::string_view path) {
    return path == rules.home || std::ranges::find(rules.volumes, path) != rules.volumes.end();
}

// Returns the folders that automatic mode backs up.
std::vector<std::string_view> automaticFolders(const BackupRules& rules) {
    std::vector<std::string_view> folders(rules.volumes.begin(), rules.volumes.end());
    folders.emplace_back(rules.home);
    return folders;
}

std::optional<Verdict> personalRuleAt(const BackupRules& rules, std::string_view path) {
    using Reason = Verdict::Reason;
    if (rules.automaticMode) {
        if (rules.paths.exclusions.contains(path))
            return Verdict{Reason::Excluded, std::string(path)};
        if (isAutomatic(rules, path))
            return Verdict{Reason::Home, std::string(path)};
    } else if (const auto mark = rules.paths.marks.find(path); mark != rules.paths.marks.end()) {
        return Verdict{mark->second == Mark::Added ? Reason::Added : Reason::Removed, std::string(path)};
    }
    return std::nullopt;
}

bool isBelowAdded(const PathRules& paths, std::string_view path) {
    while (path != "/") {
        path = folderOf(path);
        if (const auto mark = paths.marks.find(path); mark != paths.marks.end())
            return mark->second == Mark::Added;
    }
    return false;
}

// Finds keys that only one side has, or whose values differ.
template <class Container>
std::set<std::string> difference(const Container& before, const Container& now, auto keyOf) {
    std::set<std::string> keys;
    for (const auto& [one, other] : {std::pair(&before, &now), std::pair(&now, &before)})
        for (const auto& rule : *one)
            if (const auto found = other->find(keyOf(rule)); found == other->end() || *found != rule)
                keys.insert(keyOf(rule));
    return keys;
}

} // namespace

void PathRules::mark(const std::string& path, Mark mark) {
    const auto [begin, end] = below(marks, path);
    marks.erase(begin, end);
    marks.erase(path);
    if (mark == Mark::Added || isBelowAdded(*this, path))
        marks[path] = mark;
}

std::size_t PathRules::size() const {
    std::size_t size = 0;
    for (const std::string& path : exclusions)
        size += path.size() + sizeOfRule;
    for (const auto& [path, mark] : marks)
        size += path.size() + sizeOfRule;
    return size;
}

Verdict verdictFor(const BackupRules& rules, std::string_view path) {
    for (std::string_view at = path; at.starts_with('/'); at = folderOf(at)) {
        if (auto rule = ruleAt(rules, at))
            return *rule;
        if (at == "/")
            break;
    }
    return {rules.automaticMode ? Verdict::Reason::OutsideHome : Verdict::Reason::NotAdded, {}};
}

std::optional<Verdict> ruleAt(const BackupRules& rules, std::string_view path) {
    if (rules.absentDisks.contains(path))
        return Verdict{Verdict::Reason::AbsentDisk, std::string(path)};
    if (auto rule = personalRuleAt(rules, path))
        return rule;
    if (path.substr(path.rfind('/') + 1).starts_with(stagingPrefix))
        // Staging folders contain incomplete restores.
        return Verdict{Verdict::Reason::Policy, std::string(stagingPrefix) + '*'};
    if (rules.ownFiles.contains(path))
        return Verdict{Verdict::Reason::Policy, std::string(path)};
    const std::string candidate = withSeparator(path);
    for (const std::string& pattern : rules.policy)
        if (WildcardMatch(pattern, candidate))
            return Verdict{Verdict::Reason::Policy, pattern};
    return std::nullopt;
}

bool isPartial(const BackupRules& rules, std::string_view path, bool isIn) {
    if (!rules.automaticMode)
        return hasMarkBelow(rules.paths, path, isIn ? Mark::Removed : Mark::Added);
    if (!isIn)
        return std::ranges::any_of(automaticFolders(rules), [&](std::string_view folder) {
            return folder != path && folder.starts_with(withSeparator(path)) &&
                   !rules.paths.exclusions.contains(folder);
        });
    const auto [begin, end] = below(rules.paths.exclusions, path);
    return begin != end;
}

std::vector<std::string> selectedPaths(const BackupRules& rules) {
    std::vector<std::string> paths;
    if (rules.automaticMode) {
        paths = rules.volumes;
        paths.push_back(rules.home);
    } else {
        for (const auto& [path, mark] : rules.paths.marks)
            if (mark == Mark::Added)
                paths.push_back(path);
    }
    return paths;
}

bool selectsAnything(const BackupRules& rules) {
    if (!rules.automaticMode)
        return std::ranges::any_of(rules.paths.marks,
                                   [](const auto& mark) { return mark.second == Mark::Added; });
    return std::ranges::any_of(automaticFolders(rules), [&](std::string_view folder) {
        return !rules.paths.exclusions.contains(folder);
    });
}

// Folders come before their contents, because a mark removes those below it.
PathRules withManualSelection(const BackupRules& automatic) {
    std::map<std::string, Mark, std::less<>> marks = automatic.paths.marks;
    for (const std::string_view folder : automaticFolders(automatic))
        marks.emplace(folder, Mark::Added);
    for (const std::string& path : automatic.paths.exclusions)
        marks.insert_or_assign(path, Mark::Removed);
    PathRules manual{automatic.paths.exclusions, {}};
    for (const auto& [path, mark] : marks)
        manual.mark(path, mark);
    return manual;
}

std::set<std::string> changedRules(const BackupRules& before, const BackupRules& now) {
    if (before.automaticMode != now.automaticMode)
        return {everything};
    const auto pathItself = [](const std::string& path) { return path; };
    std::set<std::string> changed =
        now.automaticMode
            ? difference(before.paths.exclusions, now.paths.exclusions, pathItself)
            : difference(before.paths.marks, now.paths.marks, [](const auto& mark) { return mark.first; });
    changed.merge(difference(before.absentDisks, now.absentDisks, pathItself));
    return changed;
}

} // namespace kelvane
