#pragma once

#include "LocalDaemon/BackupIndex.h"
#include "LocalDaemon/RestoreJob.h"

#include <map>
#include <string>
#include <vector>

namespace kelvane {

// What is to be fetched from each snapshot: files, and folders with all that the snapshot holds of them. More
// may come than is wanted; whoever delivers takes of each item the snapshot that the index names.
using SnapshotPaths = std::map<std::uint32_t, std::vector<std::string>>; // by the snapshot's number

// Adds what it takes to have the item with all that is below it in its newest version. A snapshot that would
// be asked for very many paths is asked for the whole item instead.
void addToPlan(SnapshotPaths& plan, const BackupIndex& index, const BackupIndex::Item& item);

// restic's arguments for one snapshot, as several calls where one would be longer than the system takes. None
// is empty.
[[nodiscard]] std::vector<std::vector<std::string>> includeArguments(const std::vector<std::string>& paths);

} // namespace kelvane
