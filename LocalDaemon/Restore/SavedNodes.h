#pragma once

#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/Restore/RestoreTrouble.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kelvane {

// What the repository says of a file or folder beside what the index has.
struct SavedNode {
    bool isFile = false;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t links = 0;
    std::string contents; // of a file: the ids of what it consists of, the same for the same bytes
    std::map<std::string, std::string> attributes; // extended ones
};

// Looks nodes up in snapshots. Trees are asked for once: the next file mostly is in the same folders. Belongs
// to one thread, which it blocks: half a second for each folder on the way.
class SavedNodes {
public:
    SavedNodes(std::shared_ptr<const Restic> restic, const StopSignal& stop);
    ~SavedNodes();
    SavedNodes(const SavedNodes&) = delete;
    SavedNodes& operator=(const SavedNodes&) = delete;

    // None, with the reason.
    [[nodiscard]] std::optional<SavedNode> find(const std::string& snapshotId, const std::string& path,
                                                RestoreTrouble& trouble);

private:
    class Trees;

    const std::unique_ptr<Trees> trees_;
};

// A name in a tree of the repository: what is not printable in it is escaped as in the strings of Go.
[[nodiscard]] std::string nameInTree(std::string_view escaped);

} // namespace kelvane
