#include "Foundation/PathComponents.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/DaemonState.h"

#include <algorithm>

namespace kelvane {

void DaemonState::noteDisks(const Volumes& mounted) {
    changeSettings([&](Settings& settings) {
        for (const Volume& volume : mounted.all())
            if (volume.mountPoint != "/")
                settings.disks.insert(volume.mountPoint);
    });
}

std::shared_ptr<const Volumes> DaemonState::withMissing(std::shared_ptr<const Volumes> mounted) const {
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
    const auto mounted = fileSystem.volumes();
    std::set<std::string, std::less<>> absent;
    for (const std::string& disk : settings().disks)
        if (std::ranges::find(mounted->all(), disk, &Volume::mountPoint) == mounted->all().end() &&
            fileSystem.list(disk, 1).names.empty())
            absent.insert(disk);
    const std::scoped_lock guard(mutex_);
    if (absent == absentDisks_)
        return;
    absentDisks_ = std::move(absent);
    changeRules();
    announce();
}

std::string DaemonState::absentDiskOf(const std::string& path) const {
    const std::scoped_lock guard(mutex_);
    const auto disk = std::ranges::find_if(absentDisks_, [&](const std::string& each) {
        return path == each || path.starts_with(withSeparator(each));
    });
    return disk == absentDisks_.end() ? std::string() : *disk;
}

std::set<std::string, std::less<>> DaemonState::absentDisksInBackup() const {
    const std::scoped_lock guard(mutex_);
    std::set<std::string, std::less<>> disks = absentDisks_;
    std::erase_if(disks, [&](const std::string& disk) { return !isInBackup(disk); });
    return disks;
}

bool DaemonState::isInBackup(const std::string& path) const {
    const BackupIndex::Item* const item = index_->find(path);
    return item && index_->hasContent(*item);
}

} // namespace kelvane
