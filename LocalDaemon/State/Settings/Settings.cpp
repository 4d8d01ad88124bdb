#include "LocalDaemon/State/Settings/Settings.h"

#include "Foundation/Unicode.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace kelvane {
namespace {

struct Flag {
    std::string_view key;
    bool Settings::*member;
};

constexpr std::string_view hasManualSelectionKey = "hasManualSelection";
constexpr Flag flags[] = {
    {"automaticMode", &Settings::automaticMode},
    {hasManualSelectionKey, &Settings::hasManualSelection},
    {"enabled", &Settings::enabled},
    {"recoverMode", &Settings::recoverMode},
    {"lowerPriorityMode", &Settings::lowerPriorityMode},
    {"delayShutdown", &Settings::delayShutdown},
    {"includeRequired", &Settings::includeRequired},
};
constexpr std::string_view controlFlagsKey = "backupControlFlags";
constexpr std::string_view pausedSinceKey = "pausedSince";
constexpr std::string_view pausedUntilKey = "pausedUntil";
constexpr std::string_view profileKey = "profile";
constexpr std::string_view togglesKey = "fileTypeToggles";
constexpr std::string_view exclusionsKey = "exclusions";
constexpr std::string_view addedKey = "added";
constexpr std::string_view removedKey = "removed";
constexpr std::string_view disksKey = "disks";
constexpr std::string_view mountsKey = "mounts";
constexpr std::string_view mountIdsKey = "mountIds";       // By mount point.
constexpr std::string_view mountPointsKey = "mountPoints"; // By path.
constexpr std::string_view awayDisksKey = "awayDisks";     // A dictionary for each disk.
constexpr std::string_view pathKey = "path";
constexpr std::string_view sinceKey = "since"; // In seconds since 1970.
constexpr std::string_view decisionKey = "decision";

struct DecisionName {
    AwayDisk::Decision decision;
    std::string_view name;
};
constexpr DecisionName decisionNames[] = {{AwayDisk::Decision::None, ""},
                                          {AwayDisk::Decision::Keep, "keep"},
                                          {AwayDisk::Decision::Forget, "forget"}};

constexpr std::size_t mostEntries = 100;
constexpr std::size_t longestKey = 256;
constexpr std::size_t longestText = 4096;
// Each byte may take six in the file.
constexpr std::size_t mostPathRuleBytes = std::size_t{1} << 20U;

template <class IsRight>
Dictionary entriesOf(const Value& value, IsRight isRight) {
    Dictionary entries;
    for (const auto& [key, entry] : value.dictionary())
        if (isRight(entry))
            static_cast<void>(setEntry(entries, key, entry));
    return entries;
}

template <class Paths>
Array textsOf(const Paths& paths) {
    Array texts;
    for (const std::string& path : paths)
        texts.emplace_back(textFromPath(path));
    return texts;
}

Array pathsMarked(const PathRules& paths, PathRules::Mark wanted) {
    Array marked;
    for (const auto& [path, mark] : paths.marks)
        if (mark == wanted)
            marked.emplace_back(textFromPath(path));
    return marked;
}

template <class Take>
void forEachPath(const Value& list, Take take) {
    for (const Value& path : list.array())
        if (path.stringValue().starts_with('/'))
            take(pathFromText(path.stringValue()));
}

Array valueOf(const std::map<std::string, AwayDisk>& disks) {
    Array list;
    for (const auto& [path, disk] : disks) {
        const auto* const name = std::ranges::find(decisionNames, disk.decision, &DecisionName::decision);
        list.push_back(Dictionary{{std::string(pathKey), textFromPath(path)},
                                  {std::string(sinceKey), disk.since},
                                  {std::string(decisionKey), std::string(name->name)}});
    }
    return list;
}

std::map<std::string, AwayDisk> awayDisksOf(const Value& list) {
    std::map<std::string, AwayDisk> disks;
    for (const Value& each : list.array()) {
        const auto* const name = std::ranges::find(
            decisionNames, std::string_view(each[decisionKey].stringValue()), &DecisionName::name);
        if (each[pathKey].stringValue().starts_with('/'))
            disks[pathFromText(each[pathKey].stringValue())] = {
                each[sinceKey].int64Value(),
                name == std::end(decisionNames) ? AwayDisk::Decision::None : name->decision};
    }
    return disks;
}

PathRules pathRulesOf(const Value& value) {
    using Mark = PathRules::Mark;
    PathRules paths;
    forEachPath(value[exclusionsKey], [&](const std::string& path) { paths.exclusions.insert(path); });
    for (const auto& [key, mark] : {std::pair(addedKey, Mark::Added), std::pair(removedKey, Mark::Removed)})
        forEachPath(value[key], [&, mark = mark](const std::string& path) { paths.marks[path] = mark; });
    return paths;
}

} // namespace

Value valueFromSettings(const Settings& settings) {
    Dictionary entries;
    for (const Flag& flag : flags)
        entries.set(flag.key, settings.*flag.member);
    entries.set(controlFlagsKey, settings.backupControlFlags);
    entries.set(pausedSinceKey, settings.pausedSince);
    entries.set(pausedUntilKey, settings.pausedUntil);
    entries.set(profileKey, settings.profile);
    entries.set(togglesKey, settings.fileTypeToggles);
    entries.set(exclusionsKey, textsOf(settings.paths.exclusions));
    entries.set(addedKey, pathsMarked(settings.paths, PathRules::Mark::Added));
    entries.set(removedKey, pathsMarked(settings.paths, PathRules::Mark::Removed));
    entries.set(disksKey, textsOf(settings.disks));
    Array mounts;
    Dictionary ids;
    for (const auto& [point, id] : settings.mounts) {
        mounts.emplace_back(textFromPath(point));
        ids.set(textFromPath(point), id);
    }
    entries.set(mountsKey, std::move(mounts));
    entries.set(mountIdsKey, std::move(ids));
    Dictionary mountPoints;
    for (const auto& [path, point] : settings.mountPoints)
        mountPoints.set(textFromPath(path), textFromPath(point));
    entries.set(mountPointsKey, std::move(mountPoints));
    entries.set(awayDisksKey, valueOf(settings.awayDisks));
    return entries;
}

Settings settingsFromValue(const Value& value) {
    Settings settings;
    for (const Flag& flag : flags)
        if (value[flag.key].isNumber())
            settings.*flag.member = value[flag.key].boolValue();
    settings.backupControlFlags = value[controlFlagsKey].uint32Value();
    settings.pausedSince = value[pausedSinceKey].int64Value();
    settings.pausedUntil = value[pausedUntilKey].int64Value();
    settings.profile = entriesOf(value[profileKey], [](const Value& entry) { return entry.isString(); });
    settings.fileTypeToggles =
        entriesOf(value[togglesKey], [](const Value& entry) { return entry.isNumber(); });
    settings.paths = pathRulesOf(value);
    if (value[hasManualSelectionKey].isAbsent()) // Saved by a version without this entry.
        settings.hasManualSelection = !settings.automaticMode || !settings.paths.marks.empty();
    forEachPath(value[disksKey], [&](const std::string& path) { settings.disks.insert(path); });
    forEachPath(value[mountsKey], [&](const std::string& path) {
        settings.mounts[path] = value[mountIdsKey][textFromPath(path)].stringValue();
    });
    for (const auto& [path, point] : value[mountPointsKey].dictionary())
        if (path.starts_with('/') && point.stringValue().starts_with('/'))
            settings.mountPoints[pathFromText(path)] = pathFromText(point.stringValue());
    if (value[mountPointsKey].isAbsent() && !value[mountsKey].isAbsent())
        settings.mountPoints["/"] = "/"; // Saved by a version that recorded only the mounts.
    settings.awayDisks = awayDisksOf(value[awayDisksKey]);
    return settings;
}

bool setEntry(Dictionary& entries, const std::string& key, const Value& value) {
    if (key.size() > longestKey || value.stringValue().size() > longestText)
        return false;
    if (!entries.contains(key) && entries.size() >= mostEntries)
        return false;
    entries.set(key, value);
    return true;
}

bool isTooLarge(const PathRules& paths) {
    return paths.size() > mostPathRuleBytes;
}

} // namespace kelvane
