#include "LocalDaemon/State/AbsentDisks.h"

#include "Foundation/Checksum.h"
#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/Index/RetentionAlerts.h"
#include "LocalDaemon/Restic/Restic.h"

#include <algorithm>
#include <cerrno>

namespace kelvane {
namespace {

constexpr const char* lostAndFound = "lost+found";             // mkfs makes it
constexpr std::size_t mostLookedAt = 100;                      // entries of a folder
constexpr std::int64_t usualAbsence = std::int64_t{7} * 86400; // seconds that nobody is warned of

struct AbsenceText {
    std::string beforePlace;
    std::string afterPlace;
    std::string since;
};
// In the order of `Absence`.
const AbsenceText absenceTexts[] = {
    {"The disk at ", " is away.", "Nothing has been mounted there since "},
    {"", " is empty, and was not when it was backed up.", "It has been empty or missing since "},
    {"Something is mounted over ", ", which was backed up.", "What was backed up has been hidden since "},
    {"Another disk is mounted at ", " than the one that was backed up.",
     "The other one has been mounted there since "},
    {"What is mounted at ", " does not answer.", "It has been silent since "},
};

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
    std::set<std::string, std::less<>> points = settings.disks;
    for (const auto& [point, id] : settings.mounts)
        points.insert(point);
    return points;
}

// The deepest of these folders that the path is in; empty: none.
std::string nearestOf(const std::set<std::string, std::less<>>& folders, const std::string& path) {
    for (std::string_view at = path; at.size() > 1; at = folderOf(at))
        if (folders.contains(at))
            return std::string(at);
    return {};
}

// One that the system does not know yet is left alone until it does. Earlier versions noted no folder before
// the file system.
bool isAnother(const std::string& remembered, const std::string& id) {
    const bool hasFolder = remembered.starts_with('/');
    return !remembered.empty() && remembered != (hasFolder ? id : id.substr(id.find(' ') + 1));
}

// Whether a file or link was backed up there, or a folder with something in the last snapshot that holds it.
bool hasSavedContents(const BackupIndex& index, const std::string& path) {
    const BackupIndex::Item* const item = index.find(path);
    return item && (item->kind != ItemKind::Folder ||
                    std::ranges::any_of(index.children(*item), [&](const BackupIndex::Item& child) {
                        return child.snapshot >= item->snapshot;
                    }));
}

// What is selected by itself is backed up whatever is mounted there, and what was in the way of a mount that
// was backed up is none of its contents. A disk that is merely known may be the one that hides it. No mount
// is asked, for one may never answer.
bool isCovered(const std::string& point, const Settings& settings, const BackupRules& rules,
               const BackupIndex& index) {
    return hasSavedContents(index, point) && !settings.mounts.contains(point) && !ruleAt(rules, point) &&
           verdictFor(rules, folderOf(point)).isIn();
}

// Where what is selected is mounted; asks for each folder once.
class MountPointSearch {
public:
    explicit MountPointSearch(const FileSystem& fileSystem) : fileSystem_(fileSystem) {}

    std::string pointOf(const std::string& path) {
        std::vector<std::string> passed;
        std::string at = path;
        while (at != "/" && !known_.contains(at) && !fileSystem_.isMountRoot(at)) {
            passed.push_back(at);
            at = folderOf(at);
        }
        const std::string point = known_.contains(at) ? known_[at] : at;
        known_[at] = point;
        for (const std::string& each : passed)
            known_[each] = point;
        return point;
    }

private:
    const FileSystem& fileSystem_;
    std::map<std::string, std::string, std::less<>> known_; // mount points by folder
};

// Nothing may be asked of it now. A server that wakes up is not away.
bool isSilent(const std::string& path, const FileSystem& fileSystem) {
    return fileSystem.isSilent(path, std::chrono::milliseconds(1));
}

// Whether a mount shows what is in its place without it. Services may have folders mounted upon themselves,
// to be given them with other options.
bool isSameFolder(const std::string& point, const std::string& around, const FileSystem& fileSystem) {
    const std::string outer = fileSystem.fileSystemId(around);
    const std::size_t blank = outer.find(' ');
    if (blank == std::string::npos)
        return false;
    const std::string folder = outer.substr(0, blank);
    const std::string below = point.substr(around == "/" ? 0 : around.size());
    return fileSystem.fileSystemId(point) ==
           (folder == "/" ? "" : folder) + textFromPath(below) + outer.substr(blank);
}

// A mount at what is selected or above it, which was not there when that was backed up.
void addCoveredSelection(Absences& absences, std::set<std::string, std::less<>>& away,
                         const Settings& settings, const BackupRules& rules, const BackupIndex& index,
                         const FileSystem& fileSystem) {
    MountPointSearch search(fileSystem);
    for (const std::string& path : selectedPaths(rules)) {
        const auto before = settings.mountPoints.find(path);
        if (before == settings.mountPoints.end() || !isInBackup(index, path) ||
            !nearestOf(away, path).empty() || isSilent(path, fileSystem))
            continue;
        const std::string point = search.pointOf(path);
        if (point.size() <= before->second.size() || settings.mounts.contains(point) ||
            isSameFolder(point, before->second, fileSystem))
            continue;
        away.insert(point);
        absences[point] = Absence::Covered;
    }
}

void addCovered(Absences& absences, const Settings& settings, BackupRules rules, const BackupIndex& index,
                const FileSystem& fileSystem) {
    rules.absentDisks.clear(); // which is what was found the last time
    std::set<std::string, std::less<>> away;
    for (const auto& [path, absence] : absences)
        away.insert(path);
    addCoveredSelection(absences, away, settings, rules, index, fileSystem);
    const std::vector<std::string> mounts = fileSystem.mountsBelow("/");
    for (const std::string& point : std::set(mounts.begin(), mounts.end())) // folders come first
        if (nearestOf(away, point).empty() && isCovered(point, settings, rules, index)) {
            away.insert(point);
            absences[point] = Absence::Covered;
        }
}

void addSilent(Absences& absences, const std::string& point, const FileSystem& fileSystem) {
    if (fileSystem.isSilent(point, longestSilence))
        absences[point] = Absence::Silent;
}

} // namespace

bool isInBackup(const BackupIndex& index, const std::string& path) {
    const BackupIndex::Item* const item = index.find(path);
    return item && (item->kind != ItemKind::Folder || !index.children(*item).empty());
}

Absences absencesNow(const Settings& settings, const BackupRules& rules, const BackupIndex& index,
                     const FileSystem& fileSystem) {
    Absences absences;
    for (const auto& [point, id] : settings.mounts)
        if (!isInBackup(index, point))
            continue;
        else if (!fileSystem.isMountRoot(point))
            absences[point] = Absence::NotMounted;
        else if (isSilent(point, fileSystem))
            addSilent(absences, point, fileSystem);
        else if (isEmpty(point, rules, fileSystem))
            absences[point] = Absence::Empty;
        else if (isAnother(id, fileSystem.fileSystemId(point)))
            absences[point] = Absence::Another;
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
            !isSilent(folder, fileSystem) && isEmpty(folder, rules, fileSystem))
            absences[folder] = Absence::Empty;
    addCovered(absences, settings, rules, index, fileSystem);
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

MountsOfSelection mountsOfSelection(const BackupRules& rules, const FileSystem& fileSystem) {
    MountsOfSelection selection;
    MountPointSearch search(fileSystem);
    for (const std::string& path : selectedPaths(rules)) {
        if (!verdictFor(rules, path).isIn() || isSilent(path, fileSystem) || !fileSystem.attributes(path))
            continue;
        const std::string point = search.pointOf(path);
        selection.points[path] = point;
        if (point != "/" && !selection.mounts.contains(point))
            selection.mounts[point] = fileSystem.fileSystemId(point);
    }
    return selection;
}

std::string nameOfAwayDisk(const std::string& path) {
    return formatText("%016llx", checksumOf(path)).substr(0, 8);
}

Alert alertForAwayDisk(const std::string& path, Absence absence, const AwayDisk& disk, std::int64_t now) {
    const std::string name = nameOfAwayDisk(path);
    const std::string place = textFromPath(path);
    Alert alert{.kind = awayDiskAlertPrefix + name,
                .severity = "warning",
                .title = "",
                .body = "",
                .actions = {std::string(forgetDiskVerb) + ':' + name}};
    const AbsenceText& text = absenceTexts[static_cast<std::size_t>(absence)];
    alert.title = text.beforePlace + place + text.afterPlace;
    alert.body = text.since + dateText(disk.since) +
                 ". Until it is back, nothing in its place is backed up, all that it held stays in the "
                 "backup, and no other old version is removed either. If it is gone for good, or what stands "
                 "in its place is right, choose \"" +
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
