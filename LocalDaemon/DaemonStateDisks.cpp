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

std::string DaemonState::missingDiskOf(const std::string& path, const Volumes& mounted) const {
    const auto isMounted = [&](const std::string& disk) {
        return std::ranges::find(mounted.all(), disk, &Volume::mountPoint) != mounted.all().end();
    };
    const std::scoped_lock guard(mutex_);
    const auto disk = std::ranges::find_if(settings_.disks, [&](const std::string& each) {
        return (path == each || path.starts_with(withSeparator(each))) && !isMounted(each);
    });
    return disk == settings_.disks.end() ? std::string() : *disk;
}

bool DaemonState::isInBackup(const std::string& path) const {
    const BackupIndex::Item* const item = index_->find(path);
    return item && index_->hasContent(*item);
}

} // namespace kelvane
