#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restore/SavedNodes.h"

#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kelvane {

// Finds staged files that hold another file's contents. restic makes one file of all names in a snapshot that
// have one inode number, but a number that was given to a new file during the backup stands for two files.
// Belongs to one thread.
class HardLinks {
public:
    HardLinks(const BackupIndex& index, SavedNodes& nodes) : index_(index), nodes_(nodes) {}

    // A staged name of a file; all of them before the first is asked about or moved away.
    void note(const struct stat& staged, const BackupIndex::Item& item);
    // Empty, or why the contents may be another file's. Asks the repository only where names differ in their
    // times or size.
    [[nodiscard]] std::string faultOf(const struct stat& staged);

private:
    using Names = std::vector<const BackupIndex::Item*>;
    [[nodiscard]] std::string compare(const Names& names);

    const BackupIndex& index_;
    SavedNodes& nodes_;
    std::map<ino_t, Names> names_; // of files with several
    std::map<ino_t, std::string> faults_;
};

} // namespace kelvane
