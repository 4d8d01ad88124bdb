#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/Scan/FolderTree.h"
#include "LocalDaemon/State/KnownDisks.h"

#include <atomic>
#include <memory>
#include <string>

namespace kelvane {

// Answers the requests of panes about single files: the dictionaries of nodes, and values that need only a
// part of those. Everything is read from the disk at the time of the request, and evaluated with the rules
// and the index of that time. A file that is missing on the disk but is in the backup is included, marked as
// missing.
//
// Any thread; blocks on the disk, without a lock, until `stop`. Paths are resolved by PathResolver; a node
// has the path by which it was requested. A path that is neither on the disk nor in the backup, or cannot be
// reached, has no answer.
class NodeAnswers {
public:
    // `tree` contains the results of the scan.
    NodeAnswers(std::shared_ptr<const DaemonState> state, std::shared_ptr<const KnownDisks> disks,
                std::shared_ptr<const FileSystem> fileSystem, std::shared_ptr<const FolderTree> tree)
        : state_(std::move(state)),
          disks_(std::move(disks)),
          fileSystem_(std::move(fileSystem)),
          tree_(std::move(tree)) {}

    enum class FolderSizes {
        Own,      // The size of the folder's own entry.
        Contents, // The size and number of all files below it.
    };
    [[nodiscard]] Value node(const Value& path, FolderSizes sizes) const;
    // Returns the children by name. Those of the empty path are the volumes.
    [[nodiscard]] Value children(const Value& path) const;
    // Returns one colour for each path, in their order; undefined for a path that does not exist.
    [[nodiscard]] Value colors(const Value& paths) const;
    // Returns the exclusions at the path and below, as volume paths, including those of missing files;
    // "/" returns all.
    [[nodiscard]] Value excludedFiles(const Value& path) const;
    [[nodiscard]] Value policy() const;

    // Ends running requests with an incomplete result.
    void stop() { stopping_ = true; }

private:
    class Request;

    [[nodiscard]] Value volumes() const;
    [[nodiscard]] Value childrenOfFolder(const Value& path) const;

    const std::shared_ptr<const DaemonState> state_;
    const std::shared_ptr<const KnownDisks> disks_;
    const std::shared_ptr<const FileSystem> fileSystem_;
    const std::shared_ptr<const FolderTree> tree_;
    std::atomic<bool> stopping_{false};
};

} // namespace kelvane
