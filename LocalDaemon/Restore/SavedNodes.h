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

// The metadata of a file or folder that the repository has and the index lacks.
struct SavedNode {
    bool isFile = false;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t links = 0;
    std::string contents; // For a file: the ids of its blobs, equal for equal contents.
    std::map<std::string, std::string> attributes; // Extended attributes.
};

// Looks up nodes in snapshots. Trees are cached, since the next file is mostly in the same folders.
// Belongs to one thread, which it blocks for half a second for each parent folder.
class SavedNodes {
public:
    SavedNodes(std::shared_ptr<const Restic> restic, const StopSignal& stop);
    ~SavedNodes();
    SavedNodes(const SavedNodes&) = delete;
    SavedNodes& operator=(const SavedNodes&) = delete;

    // Returns no node, and sets `trouble` to the reason, when it cannot be read.
    [[nodiscard]] std::optional<SavedNode> find(const std::string& snapshotId, const std::string& path,
                                                RestoreTrouble& trouble);

private:
    class Trees;

    const std::unique_ptr<Trees> trees_;
};

// Decodes a name in a tree of the repository, in which unprintable characters are escaped as in Go
// strings.
[[nodiscard]] std::string nameInTree(std::string_view escaped);

} // namespace kelvane
