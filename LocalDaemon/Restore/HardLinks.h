#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restore/SavedNodes.h"

#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kelvane {

// Finds staged files that have another file's contents. restic restores all names with one inode number
// in a snapshot as one file, but an inode number that was reused during the backup belongs to two files.
// Belongs to one thread.
class HardLinks {
public:
    HardLinks(const BackupIndex& index, SavedNodes& nodes) : index_(index), nodes_(nodes) {}

    // Records a staged name of a file. All names must be recorded before the first is checked or moved.
    void note(const struct stat& staged, const BackupIndex::Item& item);
    // Returns empty, or why the contents may be another file's. Queries the repository only where names
    // differ in their times or size.
    [[nodiscard]] std::string faultOf(const struct stat& staged);

private:
    using Names = std::vector<const BackupIndex::Item*>;
    [[nodiscard]] std::string compare(const Names& names);

    const BackupIndex& index_;
    SavedNodes& nodes_;
    std::map<ino_t, Names> names_; // By inode number; only files with several links.
    std::map<ino_t, std::string> faults_;
};

} // namespace kelvane
