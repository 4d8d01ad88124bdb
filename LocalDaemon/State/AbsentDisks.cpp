#include "LocalDaemon/State/AbsentDisks.h"

#include "Foundation/Checksum.h"
#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/Index/LeftOut.h"
#include "LocalDaemon/Index/RetentionAlerts.h"
#include "LocalDaemon/Restic/Restic.h"

#include <algorithm>
#include <cerrno>

namespace kelvane {
namespace {

constexpr const char* lostAndFound = "lost+found"; // Created by mkfs.
constexpr std::size_t mostListed = 100;            // Entries of a folder that are checked.
// In seconds: the alert about a shorter absence is information, not a warning.
constexpr std::int64_t usualAbsence = std::int64_t{7} * 86400;

struct AbsenceText {
    std::string beforePlace;
    std::string afterPlace;
    std::string since;
};
// The rows are in the order of the values of `Absence`.
const AbsenceText absenceTexts[] = {
    {"The disk at ", " is not mounted.", "Nothing has been mounted there since "},
    {"", " is empty, and was not when it was backed up.", "It has been empty or missing since "},
    {"Something is mounted over ", ", which was backed up.", "What was backed up has been hidden since "},
    {"The disk mounted at ", " is not the one that was backed up.", "It has been mounted there since "},
    {"The file system mounted at ", " does not respond.", "It has not responded since "},
};

// Returns whether nothing in the folder could have been backed up. An unreadable folder is not empty.
bool isEmpty(const std::string& folder, const BackupRules& rules, const FileSystem& fileSystem) {
    const FolderListing listing = fileSystem.list(folder, mostListed);
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

// Returns the deepest of these folders that contains the path; empty when none does.
std::string nearestOf(const std::set<std::string, std::less<>>& folders, const std::string& path) {
    for (std::string_view at = path; at.size() > 1; at = folderOf(at))
        if (folders.contains(at))
            return std::string(at);
    return {};
}

// A mount that was recorded without an id, which the system may not know yet, counts as the same. Older
// versions recorded an id without the folder in front of it.
bool isAnother(const std::string& remembered, const std::string& id) {
    const bool hasFolder = remembered.starts_with('/');
    return !remembered.empty() && remembered != (hasFolder ? id : id.substr(id.find(' ') + 1));
}

// Returns whether a file or link was backed up there, or a folder with contents in its last snapshot.
bool hasSavedContents(const BackupIndex& index, const std::string& path) {
    const BackupIndex::Item* const item = index.find(path);
    return item && (item->kind != ItemKind::Folder ||
                    std::ranges::any_of(index.children(*item), [&](const BackupIndex::Item& child) {
                        return child.snapshot >= item->snapshot;
                    }));
}

// Returns whether the mount does not respond now. A server that is only slow to wake up is not absent.
bool isSilent(const std::string& path, const FileSystem& fileSystem) {
    return fileSystem.isSilent(path, std::chrono::milliseconds(1));
}

// Returns whether a mount shows the same folder as is there without it. Services may bind-mount folders
// onto themselves to change their mount options.
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

// Compares the mounts of the last backup with the current ones.
class AbsenceSearch {
public:
    AbsenceSearch(const Settings& settings, BackupRules rules, const BackupIndex& index,
                  const FileSystem& fileSystem)
        : settings_(settings),
          selection_(withoutAbsences(std::move(rules)), fileSystem.mounts()),
          rules_(selection_.rules()),
          index_(index),
          fileSystem_(fileSystem) {}

    Absences absences() {
        for (const auto& [point, id] : settings_.mounts)
            if (isInBackup(index_, point))
                addMount(point, id);
        addDisks();
        addFolders();
        addCovered();
        return std::move(absences_);
    }

private:
    static std::shared_ptr<const BackupRules> withoutAbsences(BackupRules rules) {
        rules.absentDisks.clear(); // The rules contain the result of the last search.
        return std::make_shared<BackupRules>(std::move(rules));
    }

    // Adds a mount of the last backup if it is absent now.
    void addMount(const std::string& point, const std::string& id) {
        if (!selection_.mounts().contains(point))
            absences_[point] = Absence::NotMounted;
        else if (isSilent(point, fileSystem_))
            addSilent(point);
        else if (isEmpty(point, rules_, fileSystem_))
            absences_[point] = Absence::Empty;
        else if (isAnother(id, fileSystem_.fileSystemId(point)))
            absences_[point] = Absence::Another;
    }
    void addSilent(const std::string& point) {
        if (fileSystem_.isSilent(point, longestSilence))
            absences_[point] = Absence::Silent;
    }
    void addDisks() {
        const auto mounted = fileSystem_.volumes();
        for (const std::string& disk : settings_.disks)
            if (!absences_.contains(disk) &&
                std::ranges::find(mounted->all(), disk, &Volume::mountPoint) == mounted->all().end() &&
                fileSystem_.list(disk, 1).names.empty())
                absences_[disk] = Absence::NotMounted;
    }
    void addFolders() {
        std::vector<std::string> folders = rules_.volumes;
        folders.push_back(rules_.home);
        const auto points = knownMountPoints(settings_);
        for (const std::string& folder : folders)
            if (!absences_.contains(nearestOf(points, folder)) && isInBackup(index_, folder) &&
                !isSilent(folder, fileSystem_) && isEmpty(folder, rules_, fileSystem_))
                absences_[folder] = Absence::Empty;
    }
    // A mount below an absent path is not added: that path explains why its files are missing.
    void addCovered() {
        const std::set<std::string> covering = coveringSelection();
        for (const auto& [point, type] : selection_.mounts())
            if (!settings_.mounts.contains(point) && !isBelowAbsence(point) &&
                (covering.contains(point) || coversContents(point)))
                absences_[point] = Absence::Covered;
    }
    // Returns the mount points at or above selected paths that are deeper than in the last backup.
    std::set<std::string> coveringSelection() const {
        std::set<std::string> covering;
        for (const std::string& path : selectedPaths(rules_)) {
            const std::string before = mountPointBefore(settings_, path);
            if (before.empty() || !hasSavedContents(index_, path) || isLeftOut(index_, path) ||
                isBelowAbsence(path) || isSilent(path, fileSystem_))
                continue;
            const std::string point = selection_.mountPointOf(path);
            if (point.size() > before.size() && !isSameFolder(point, before, fileSystem_))
                covering.insert(point);
        }
        return covering;
    }
    // A mount inside the selection, which is not backed up. The mount is not accessed, since it may
    // never respond.
    bool coversContents(const std::string& point) const {
        return hasSavedContents(index_, point) && !ruleAt(rules_, point) &&
               verdictFor(rules_, folderOf(point)).isIn();
    }
    bool isBelowAbsence(std::string_view path) const {
        for (std::string_view at = path; at.size() > 1; at = folderOf(at))
            if (absences_.contains(at))
                return true;
        return false;
    }

    const Settings& settings_;
    const MountedSelection selection_;
    const BackupRules& rules_;
    const BackupIndex& index_;
    const FileSystem& fileSystem_;
    Absences absences_;
};

} // namespace

bool isInBackup(const BackupIndex& index, const std::string& path) {
    const BackupIndex::Item* const item = index.find(path);
    return item && (item->kind != ItemKind::Folder || !index.children(*item).empty());
}

// A path that was not selected by itself at its last backup was on the file system of its parent folder.
std::string mountPointBefore(const Settings& settings, std::string_view path) {
    for (std::string_view at = path;; at = folderOf(at)) {
        if (const auto known = settings.mountPoints.find(at); known != settings.mountPoints.end())
            return known->second;
        if (settings.mounts.contains(at))
            return std::string(at);
        if (at == "/")
            return {};
    }
}

Absences absencesNow(const Settings& settings, const BackupRules& rules, const BackupIndex& index,
                     const FileSystem& fileSystem) {
    return AbsenceSearch(settings, rules, index, fileSystem).absences();
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

MountsOfSelection mountsOfSelection(const MountedSelection& selection, const FileSystem& fileSystem) {
    MountsOfSelection found;
    for (const std::string& path : selectedPaths(selection.rules())) {
        if (!selection.verdictFor(path).isIn() || isSilent(path, fileSystem) || !fileSystem.attributes(path))
            continue;
        const std::string point = selection.mountPointOf(path);
        found.points[path] = point;
        if (point != "/" && !found.mounts.contains(point))
            found.mounts[point] = fileSystem.fileSystemId(point);
    }
    return found;
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
                 ". Until it is back, this path is not backed up, its files stay in the backup, and no other "
                 "old version is removed either. If it will not come back, or the current contents of the "
                 "path are right, choose \"" +
                 forgetDiskVerb +
                 "\": the current contents are backed up from then on, and files that are missing there are "
                 "removed after the time that deleted files are kept.";
    if (disk.decision == AwayDisk::Decision::Keep ||
        (absence == Absence::NotMounted && now < disk.since + usualAbsence))
        alert.severity = "information";
    if (disk.decision != AwayDisk::Decision::Keep)
        alert.actions.insert(alert.actions.begin(), std::string(keepDiskVerb) + ':' + name);
    return alert;
}

} // namespace kelvane
