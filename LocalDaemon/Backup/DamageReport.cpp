#include "LocalDaemon/Backup/DamageReport.h"

#include "Foundation/Format.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/Backup/BackupTrouble.h"
#include "LocalDaemon/Restic/ResticNames.h"

#include <algorithm>
#include <sys/stat.h>

namespace kelvane {
namespace {

bool isOnDisk(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

template <class Names>
std::string listed(const Names& names, std::uint64_t count) {
    std::string text;
    std::size_t number = 0;
    for (const std::string& name : names)
        if (number++ < mostNamed)
            text += "\n" + name;
    return text + (mostNamed < count ? formatText("\n… and %llu more", count - mostNamed) : "");
}

std::string counted(std::uint64_t count, const char* one, const char* many) {
    return count == 1 ? one : formatText("%llu %@", count, many);
}

} // namespace

DamageReport::DamageReport(const BackupIndex& index, const Damage& damage) {
    std::set<std::string, std::less<>> newest;
    index.forEach([&](const BackupIndex::Item& item) {
        if (!index.isDamaged(item))
            return;
        const std::string path = index.pathOf(item);
        const bool isLost = !isOnDisk(path);
        ++(isLost ? lostCount : storedCount);
        auto& named = isLost ? lost : stored;
        if (named.size() < mostNamed)
            named.push_back(textFromPath(path));
        newest.insert(nameInResticJson(path));
    });
    std::set<std::string_view> earlier;
    for (const auto& [snapshot, paths] : damage.paths)
        for (const std::string& path : paths)
            if (!newest.contains(path))
                earlier.insert(path);
    earlierCount = earlier.size();
}

std::string DamageReport::outcome(const VerificationRecord& record) const {
    std::vector<std::string> parts;
    if (fileCount() > 0)
        parts.push_back(
            counted(fileCount(), "1 file in the backup is damaged", "files in the backup are damaged"));
    if (earlierCount > 0)
        parts.push_back("Earlier versions of " + counted(earlierCount, "1 file", "files") + " are damaged");
    if (!record.damage.snapshots.empty())
        parts.push_back(
            counted(record.damage.snapshots.size(), "1 snapshot cannot be read", "snapshots cannot be read"));
    if (!record.missingPacks.empty())
        parts.push_back(
            counted(record.missingPacks.size(), "1 pack file is missing", "pack files are missing"));
    if (!record.damagedPacks.empty())
        parts.push_back(
            counted(record.damagedPacks.size(), "1 pack file is damaged", "pack files are damaged"));
    if (parts.empty())
        return record.damage.isNone() ? "No damage found" : "The repository is damaged";
    std::string text = parts.front();
    for (std::size_t at = 1; at < parts.size(); ++at)
        text += "; " + parts[at];
    return text;
}

Alert DamageReport::alert(const VerificationRecord& record, bool canBeStoredAgain) const {
    std::string text;
    const auto add = [&text](const std::string& paragraph) {
        text += (text.empty() ? "" : "\n") + paragraph;
    };
    if (!record.missingPacks.empty())
        add("Pack files are missing from the repository; their contents are available again once they are "
            "back:" +
            listed(record.missingPacks, record.missingPacks.size()));
    if (earlierCount > 0)
        add("Earlier versions of " + counted(earlierCount, "1 file", "files") + " cannot be restored.");
    if (storedCount > 0)
        add((canBeStoredAgain ? "The next backup stores these files again:"
                              : "These files cannot be stored again as long as their damaged data is in the "
                                "repository:") +
            listed(stored, storedCount));
    if (!record.othersPacks.empty())
        add("Snapshots of other computers or programs need these damaged pack files as well, so they stay in "
            "the repository. When nobody needs them, move them away and run `restic rebuild-index`:" +
            listed(record.othersPacks, record.othersPacks.size()));
    if (lostCount > 0)
        add("These files are not on the disk any more and cannot be restored:" + listed(lost, lostCount));
    if (text.empty())
        add(outcome(record) + '.');
    return {.kind = damageAlert,
            .severity = "error",
            .title = fileCount() > 0 ? "Files in the backup are damaged." : "The repository is damaged.",
            .body = text};
}

bool isDamageKnown(const VerificationRecord& record) {
    return !record.damage.isNone() || record.isIndexStale || !record.damagedPacks.empty() ||
           !record.missingPacks.empty();
}

bool areOnDisk(const Damage& damage, const BackupIndex& index) {
    const auto isAsSaved = [&index](std::string_view snapshotId, const std::string& path) {
        const BackupIndex::Item* const item = index.find(path);
        struct stat status {};
        if (!item || item->kind != ItemKind::File || ::lstat(path.c_str(), &status) != 0)
            return false;
        const bool isSaved = std::ranges::any_of(index.snapshots(), [&](const auto& numbered) {
            return numbered.second.id.starts_with(snapshotId) && item->version <= numbered.first;
        });
        return isSaved && isUnchanged(*item, ItemKind::File, static_cast<std::uint64_t>(status.st_size),
                                      FileTime(status.st_mtim), FileTime(status.st_ctim));
    };
    return !damage.isEverything && damage.snapshots.empty() &&
           std::ranges::all_of(damage.paths, [&](const auto& inSnapshot) {
               return std::ranges::all_of(inSnapshot.second, [&](const std::string& pathInJson) {
                   const std::vector<std::string> paths = pathsOnDisk(pathInJson);
                   return !paths.empty() && std::ranges::all_of(paths, [&](const std::string& path) {
                       return isAsSaved(inSnapshot.first, path);
                   });
               });
           });
}

} // namespace kelvane
