// Which disks there are, and what of the backup is away with one.

#include "Foundation/CleanPath.h"
#include "Foundation/PathComponents.h"
#include "LocalDaemon/State/DaemonState.h"

#include <algorithm>

namespace kelvane {

void DaemonState::noteDisks(const Volumes& mounted) {
    changeSettings([&](Settings& settings) {
        for (const Volume& volume : mounted.all())
            if (volume.mountPoint != "/")
                settings.disks.insert(volume.mountPoint);
    });
}

std::shared_ptr<const Volumes> DaemonState::volumes(const FileSystem& fileSystem) const {
    const std::shared_ptr<const Volumes> mounted = fileSystem.volumes();
    std::vector<Volume> all = mounted->all();
    const std::string bootName = all.front().name;
    all.erase(all.begin());
    const std::scoped_lock guard(mutex_);
    for (const std::string& disk : settings_.disks)
        if (std::ranges::find(mounted->all(), disk, &Volume::mountPoint) == mounted->all().end() &&
            isInBackup(disk))
            all.push_back({lastPathComponent(disk), disk});
    if (all.size() + 1 == mounted->all().size())
        return mounted;
    return std::make_shared<const Volumes>(bootName, std::move(all));
}

void DaemonState::lookForAbsentDisks(const FileSystem& fileSystem) {
    const std::scoped_lock looking(looking_);
    const Settings known = settings();
    const Absences away = absencesNow(known, *rules(), *index(), fileSystem);
    Mounts identified; // one that a version noted that did not know ids is taken for what is there now
    for (const auto& [point, id] : known.mounts)
        if (id.empty() && !away.contains(point))
            identified[point] = fileSystem.fileSystemId(point);
    changeSettings([&](Settings& settings) {
        for (const auto& [point, id] : identified)
            if (const auto mount = settings.mounts.find(point); mount != settings.mounts.end())
                mount->second = id;
        const bool isIndexKnown = !index_->repositoryId().empty();
        std::erase_if(settings.awayDisks, [&](const auto& each) {
            const auto was = away_.find(each.first);
            const auto is = away.find(each.first);
            const bool isAnother = was != away_.end() && is != away.end() && was->second != is->second;
            return isIndexKnown && (is == away.end() || isAnother || !isInBackup(each.first));
        });
        for (const auto& [path, absence] : away)
            if (isInBackup(path))
                settings.awayDisks.try_emplace(path, AwayDisk{now()});
    });
    {
        const std::scoped_lock guard(mutex_);
        if (std::exchange(away_, away) != away && takeOtherRules())
            announce();
    }
    reportAwayDisks();
}

// One that is not mounted stays as long as it is selected: another repository, whose disk takes turns with
// this one, may hold what was on it.
void DaemonState::noteMounts(const Mounts& mounts, bool areAllKnown) {
    const Rules rules = this->rules();
    const std::vector<std::string> selected = selectedPaths(*rules);
    const auto isSelected = [&](const std::string& point) {
        return verdictFor(*rules, point).isIn() ||
               std::ranges::any_of(selected, [&](const std::string& path) {
                   return path == point || path.starts_with(withSeparator(point));
               });
    };
    changeSettings([&](Settings& settings) {
        if (areAllKnown)
            std::erase_if(settings.mounts, [&](const auto& mount) {
                return !settings.awayDisks.contains(mount.first) && !isSelected(mount.first);
            });
        for (const auto& [point, id] : mounts)
            if (!id.empty() || !settings.mounts.contains(point))
                settings.mounts[point] = id;
    });
}

std::string DaemonState::decideAwayDisk(const std::string& name, AwayDisk::Decision decision) {
    bool isKnown = false;
    changeSettings([&](Settings& settings) {
        for (auto& [path, disk] : settings.awayDisks)
            if (nameOfAwayDisk(path) == name) {
                disk.decision = decision;
                isKnown = true;
            }
    });
    reportAwayDisks();
    return isKnown ? std::string() : "No disk that is away is named " + name + ".";
}

void DaemonState::reportAwayDisks() {
    std::vector<Alert> alerts;
    {
        const std::scoped_lock guard(mutex_);
        for (const auto& [path, disk] : settings_.awayDisks)
            if (const auto absence = away_.find(path);
                absence != away_.end() && disk.decision != AwayDisk::Decision::Forget)
                alerts.push_back(alertForAwayDisk(path, absence->second, disk, now()));
    }
    alerts_->replace(awayDiskAlertPrefix, alerts);
}

std::string DaemonState::refusalFor(const std::string& path, const FileSystem& fileSystem) {
    lookForAbsentDisks(fileSystem);
    const std::scoped_lock guard(mutex_);
    for (const auto& [disk, absence] : absences()) {
        if (path != disk && !path.starts_with(withSeparator(disk)))
            continue;
        if (absence == Absence::NotMounted)
            return "the disk that belongs at " + disk + " is not there: connect it, or choose another place";
        if (absence == Absence::Silent)
            return "what is mounted at " + disk + " does not answer: choose another place";
        if (absence != Absence::Empty)
            return "something else is mounted at " + disk +
                   " than what was backed up from there: unmount it, or choose another place";
    }
    return {};
}

std::set<std::string, std::less<>> DaemonState::absentInBackup() const {
    const std::scoped_lock guard(mutex_);
    std::set<std::string, std::less<>> paths;
    for (const auto& [path, absence] : absences())
        if (isInBackup(path))
            paths.insert(path);
    return paths;
}

// Less what a person has given up.
Absences DaemonState::absences() const {
    Absences absences = away_;
    std::erase_if(absences, [&](const auto& each) {
        const auto known = settings_.awayDisks.find(each.first);
        return known != settings_.awayDisks.end() && known->second.decision == AwayDisk::Decision::Forget;
    });
    return absences;
}

bool DaemonState::isInBackup(const std::string& path) const {
    return kelvane::isInBackup(*index_, path);
}

} // namespace kelvane
