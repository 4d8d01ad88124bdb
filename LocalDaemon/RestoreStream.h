#pragma once

#include "LocalDaemon/BackupIndex.h"
#include "LocalDaemon/Restic.h"
#include "LocalDaemon/RestoreStaging.h"

#include <string>

namespace kelvane {

// Brings one file into the staging folder, where the folder around it has to be, without the blocks that hold
// nothing but zeros: `restic restore` would write those too. Its owner, times and extended attributes come
// as they were saved. Blocks on restic, half a second for each folder on the way and then as long as it
// takes. Empty, or why it failed.
struct StreamedFile {
    const BackupIndex::Item& item;
    const std::string& path;
};
[[nodiscard]] std::string streamFile(const Restic& restic, const std::string& snapshotId,
                                     const StreamedFile& file, const StagingFolder& staging,
                                     const StopSignal& stop);

// A name in a tree of the repository: what is not printable in it is escaped as in the strings of Go.
[[nodiscard]] std::string nameInTree(std::string_view escaped);

} // namespace kelvane
