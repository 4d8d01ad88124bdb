#include "LocalDaemon/Restic/Damage.h"

#include "Foundation/CleanPath.h"

#include <algorithm>

namespace kelvane {
namespace {

constexpr std::string_view everythingKey = "everything";
constexpr std::string_view snapshotsKey = "snapshots";
constexpr std::string_view pathsKey = "paths";

} // namespace

bool Damage::holds(std::string_view snapshotId, std::string_view path) const {
    if (isEverything ||
        std::ranges::any_of(snapshots, [&](const std::string& each) { return snapshotId.starts_with(each); }))
        return true;
    const auto inSnapshot = paths.find(snapshotId);
    if (inSnapshot == paths.end())
        return false;
    for (; path.size() > 1; path = folderOf(path))
        if (inSnapshot->second.contains(path))
            return true;
    return inSnapshot->second.contains(path);
}

Value Damage::value() const {
    Dictionary bySnapshot;
    for (const auto& [snapshot, files] : paths)
        bySnapshot.set(snapshot, Array(files.begin(), files.end()));
    return Dictionary{{std::string(everythingKey), isEverything},
                      {std::string(snapshotsKey), Array(snapshots.begin(), snapshots.end())},
                      {std::string(pathsKey), bySnapshot}};
}

Damage Damage::fromValue(const Value& value) {
    Damage damage;
    damage.isEverything = value[everythingKey].boolValue();
    for (const Value& each : value[snapshotsKey].array())
        if (!each.stringValue().empty()) // An empty string is a prefix of every id.
            damage.snapshots.insert(each.stringValue());
    for (const auto& [snapshot, files] : value[pathsKey].dictionary())
        for (const Value& file : files.array())
            damage.paths[snapshot].insert(file.stringValue());
    return damage;
}

} // namespace kelvane
