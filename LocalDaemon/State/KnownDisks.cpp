#include "LocalDaemon/State/KnownDisks.h"

#include "Foundation/CleanPath.h"
#include "Foundation/PathComponents.h"

#include <algorithm>
#include <utility>

namespace kelvane {

KnownDisks::KnownDisks(std::shared_ptr<DaemonState> state, std::shared_ptr<const FileSystem> fileSystem)
    : state_(std::move(state)), fileSystem_(std::move(fileSystem)) {}

void KnownDisks::note(const Volumes& mounted) {
    state_->changeSettings([&](Settings& settings) {
        for (const Volume& volume : mounted.all())
            if (volume.mountPoint != "/")
                settings.disks.insert(volume.mountPoint);
    });
}

std::shared_ptr<const Volumes> KnownDisks::volumes() const {
    const std::shared_ptr<const Volumes> mounted = fileSystem_->volumes();
    std::vector<Volume> all = mounted->all();
    const std::string bootName = all.front().name;
    all.erase(all.begin());
    const DaemonState::Index index = state_->index();
    for (const std::string& disk : state_->setting(&Settings::disks))
        if (std::ranges::find(mounted->all(), disk, &Volume::mountPoint) == mounted->all().end() &&
            isInBackup(*index, disk))
            all.push_back({lastPathComponent(disk), disk});
    if (all.size() + 1 == mounted->all().size())
        return mounted;
    return std::make_shared<const Volumes>(bootName, std::move(all));
}

void KnownDisks::lookForAbsent() {
    const std::scoped_lock looking(looking_);
    const Settings known = state_->settings();
    const DaemonState::Index index = state_->index();
    const Absences away = absencesNow(known, *state_->rules(), *index, *fileSystem_);
    // A disk recorded by a version without full ids is assumed to be the one that is mounted now.
    Mounts identified;
    for (const auto& [point, id] : known.mounts)
        if (!id.starts_with('/') && !away.contains(point))
            identified[point] = fileSystem_->fileSystemId(point);
    state_->changeSettings([&](Settings& settings) {
        for (const auto& [point, id] : identified)
            if (const auto mount = settings.mounts.find(point); mount != settings.mounts.end() && !id.empty())
                mount->second = id;
        const bool isIndexKnown = !index->repositoryId().empty();
        std::erase_if(settings.awayDisks, [&](const auto& each) {
            const auto was = away_.find(each.first);
            const auto is = away.find(each.first);
            const bool isAnother = was != away_.end() && is != away.end() && was->second != is->second;
            return isIndexKnown && (is == away.end() || isAnother || !isInBackup(*index, each.first));
        });
        for (const auto& [path, absence] : away)
            if (isInBackup(*index, path))
                settings.awayDisks.try_emplace(path, AwayDisk{state_->now()});
    });
    away_ = away;
    state_->setAbsences(away);
    report();
}

MountsOfSelection KnownDisks::updateMounts() {
    lookForAbsent();
    return mountsOfSelection(selection(), *fileSystem_);
}

// A disk that is not mounted stays as long as it is selected: another repository, whose disk is mounted
// in turn with this one, may contain its files.
void KnownDisks::noteMounts(const MountsOfSelection& selection, bool areAllKnown) {
    const DaemonState::Rules rules = state_->rules();
    const std::vector<std::string> selected = selectedPaths(*rules);
    const auto isSelected = [&](const std::string& point) {
        return verdictFor(*rules, point).isIn() ||
               std::ranges::any_of(selected, [&](const std::string& path) {
                   return path == point || path.starts_with(withSeparator(point));
               });
    };
    state_->changeSettings([&](Settings& settings) {
        std::map<std::string, std::string, std::less<>> points = selection.points;
        for (const std::string& path : selected)
            if (std::string before = mountPointBefore(settings, path); !before.empty())
                points.try_emplace(path, std::move(before)); // An absent path keeps its mount point.
        settings.mountPoints = std::move(points);
        if (areAllKnown)
            std::erase_if(settings.mounts, [&](const auto& mount) {
                return !settings.awayDisks.contains(mount.first) && !isSelected(mount.first);
            });
        for (const auto& [point, id] : selection.mounts)
            if (!id.empty() || !settings.mounts.contains(point))
                settings.mounts[point] = id;
    });
}

std::string KnownDisks::decide(const std::string& name, AwayDisk::Decision decision) {
    bool isKnown = false;
    state_->changeSettings([&](Settings& settings) {
        for (auto& [path, disk] : settings.awayDisks)
            if (nameOfAwayDisk(path) == name) {
                disk.decision = decision;
                isKnown = true;
            }
    });
    report();
    return isKnown ? std::string() : "No absent disk is named " + name + ".";
}

void KnownDisks::report() const {
    const auto disks = state_->setting(&Settings::awayDisks);
    std::vector<Alert> alerts;
    for (const auto& [path, absence] : state_->absences())
        if (const auto disk = disks.find(path);
            disk != disks.end() && disk->second.decision != AwayDisk::Decision::Forget)
            alerts.push_back(alertForAwayDisk(path, absence, disk->second, state_->now()));
    state_->alerts()->replace(awayDiskAlertPrefix, alerts);
}

std::string KnownDisks::refusalFor(const std::string& path) {
    lookForAbsent();
    for (const auto& [disk, absence] : state_->absences()) {
        if (path != disk && !path.starts_with(withSeparator(disk)))
            continue;
        if (absence == Absence::NotMounted)
            return "the disk that belongs at " + disk +
                   " is not mounted: connect it, or choose another target";
        if (absence == Absence::Silent)
            return "the file system mounted at " + disk + " does not respond: choose another target";
        if (absence != Absence::Empty)
            return "something else is mounted at " + disk +
                   " than what was backed up from there: unmount it, or choose another target";
    }
    return {};
}

std::set<std::string, std::less<>> KnownDisks::absentInBackup() const {
    const DaemonState::Index index = state_->index();
    std::set<std::string, std::less<>> paths;
    for (const auto& [path, absence] : state_->absences())
        if (isInBackup(*index, path))
            paths.insert(path);
    return paths;
}

} // namespace kelvane
