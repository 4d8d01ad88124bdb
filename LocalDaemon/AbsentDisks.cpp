#include "LocalDaemon/AbsentDisks.h"

#include "Foundation/Checksum.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/RetentionAlerts.h"

#include <algorithm>
#include <cerrno>

namespace kelvane {
namespace {

constexpr const char* lostAndFound = "lost+found";             // mkfs makes it
constexpr std::size_t mostLookedAt = 100;                      // entries of a folder
constexpr std::int64_t usualAbsence = std::int64_t{7} * 86400; // seconds that nobody is warned of

// Nothing in it could have been backed up. One that cannot be read is not empty.
bool isEmpty(const std::string& folder, const BackupRules& rules, const FileSystem& fileSystem) {
    const FolderListing listing = fileSystem.list(folder, mostLookedAt);
    if (listing.error != 0)
        return listing.error == ENOENT || listing.error == ENOTDIR;
    return listing.isComplete && std::ranges::all_of(listing.names, [&](const std::string& name) {
               const auto rule = ruleAt(rules, appendPathComponent(folder, name));
               return name == lostAndFound || (rule && rule->reason == Verdict::Reason::Policy);
           });
}

std::set<std::string, std::less<>> knownMountPoints(const Settings& settings) {
    std::set<std::string, std::less<>> points = settings.mounts;
    points.insert(settings.disks.begin(), settings.disks.end());
    return points;
}

// The deepest of these folders that the path is in; empty: none.
std::string nearestOf(const std::set<std::string, std::less<>>& folders, const std::string& path) {
    for (std::string_view at = path; at.size() > 1; at = folderOf(at))
        if (folders.contains(at))
            return std::string(at);
    return {};
}

} // namespace

bool isInBackup(const BackupIndex& index, const std::string& path) {
    const BackupIndex::Item* const item = index.find(path);
    return item && (item->kind != ItemKind::Folder || !index.children(*item).empty());
}

Absences absencesNow(const Settings& settings, const BackupRules& rules, const BackupIndex& index,
                     const FileSystem& fileSystem) {
    Absences absences;
    for (const std::string& point : settings.mounts)
        if (!isInBackup(index, point))
            continue;
        else if (!fileSystem.isMountRoot(point))
            absences[point] = Absence::NotMounted;
        else if (isEmpty(point, rules, fileSystem))
            absences[point] = Absence::Empty;
    const auto mounted = fileSystem.volumes();
    for (const std::string& disk : settings.disks)
        if (!absences.contains(disk) &&
            std::ranges::find(mounted->all(), disk, &Volume::mountPoint) == mounted->all().end() &&
            fileSystem.list(disk, 1).names.empty())
            absences[disk] = Absence::NotMounted;
    std::vector<std::string> folders = rules.volumes;
    folders.push_back(rules.home);
    const auto points = knownMountPoints(settings);
    for (const std::string& folder : folders)
        if (!absences.contains(nearestOf(points, folder)) && isInBackup(index, folder) &&
            isEmpty(folder, rules, fileSystem))
            absences[folder] = Absence::Empty;
    return absences;
}

std::set<std::string, std::less<>> pathsOfAbsences(const Absences& absences, const Settings& settings,
                                                   const BackupRules& rules) {
    std::set<std::string, std::less<>> paths;
    if (absences.empty())
        return paths;
    for (const auto& [path, absence] : absences)
        paths.insert(path);
    auto points = knownMountPoints(settings);
    points.insert(paths.begin(), paths.end());
    for (const std::string& path : selectedPaths(rules))
        if (absences.contains(nearestOf(points, path)))
            paths.insert(path);
    return paths;
}

std::set<std::string, std::less<>> mountsOfSelection(const BackupRules& rules, const FileSystem& fileSystem) {
    std::set<std::string, std::less<>> mounts;
    std::map<std::string, std::string, std::less<>> known; // mount points by folder
    for (const std::string& path : selectedPaths(rules)) {
        if (!verdictFor(rules, path).isIn() || !fileSystem.attributes(path))
            continue;
        std::vector<std::string> passed;
        std::string at = path;
        while (at != "/" && !known.contains(at) && !fileSystem.isMountRoot(at)) {
            passed.push_back(at);
            at = folderOf(at);
        }
        const std::string point = known.contains(at) ? known[at] : at;
        known[at] = point;
        for (const std::string& each : passed)
            known[each] = point;
        if (point != "/")
            mounts.insert(point);
    }
    return mounts;
}

std::string nameOfAwayDisk(const std::string& path) {
    return formatText("%016llx", checksumOf(path)).substr(0, 8);
}

Alert alertForAwayDisk(const std::string& path, Absence absence, const AwayDisk& disk, std::int64_t now) {
    const std::string name = nameOfAwayDisk(path);
    const std::string place = textFromPath(path);
    Alert alert{awayDiskAlertPrefix + name, "warning", "", "", {std::string(forgetDiskVerb) + ':' + name}};
    alert.title = absence == Absence::NotMounted ? "The disk at " + place + " is away."
                                                 : place + " is empty, and was not when it was backed up.";
    alert.body =
        (absence == Absence::NotMounted ? "Nothing has been mounted there since "
                                        : "It has been empty or missing since ") +
        dateText(disk.since) +
        ". Until it is back, nothing in its place is backed up, all that it held stays in the backup, "
        "and no other old version is removed either. If it is gone for good, or what stands in its "
        "place is right, choose \"" +
        forgetDiskVerb +
        "\": that is backed up from now on, and what is missing there is removed once it has been "
        "kept for the usual time.";
    if (disk.decision == AwayDisk::Decision::Keep ||
        (absence == Absence::NotMounted && now < disk.since + usualAbsence))
        alert.severity = "information";
    if (disk.decision != AwayDisk::Decision::Keep)
        alert.actions.insert(alert.actions.begin(), std::string(keepDiskVerb) + ':' + name);
    return alert;
}

} // namespace kelvane
