#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/Scan/FolderTree.h"
#include "LocalDaemon/State/KnownDisks.h"

#include <atomic>
#include <memory>
#include <string>

namespace kelvane {

// What panes ask about single files: the dictionaries of nodes, and what only needs a part of those. All of
// it is read from the disk at that moment and judged by the rules and the index of that moment. What has gone
// from the disk but is in the backup is there all the same, marked as missing.
//
// Any thread; blocks on the disk, without a lock, until `stop`. Paths come as PathEntrance takes them; a node
// has the path that it was asked for by. What is neither on the disk nor in the
// backup, or cannot be reached, has no answer.
class NodeAnswers {
public:
    // `tree` is what the scan has found.
    NodeAnswers(std::shared_ptr<const DaemonState> state, std::shared_ptr<const KnownDisks> disks,
                std::shared_ptr<const FileSystem> fileSystem, std::shared_ptr<const FolderTree> tree)
        : state_(std::move(state)),
          disks_(std::move(disks)),
          fileSystem_(std::move(fileSystem)),
          tree_(std::move(tree)) {}

    enum class FolderSizes {
        Own,      // what the folder itself takes, as the disk says
        Contents, // all files below it, and their number
    };
    [[nodiscard]] Value node(const Value& path, FolderSizes sizes) const;
    // By name. Those of the empty path are the volumes.
    [[nodiscard]] Value children(const Value& path) const;
    // One for each path, in their order; an undefined one for what is not there.
    [[nodiscard]] Value colors(const Value& paths) const;
    // The exclusions at the path and below, as volume paths, also of files that are gone; "/" has all.
    [[nodiscard]] Value excludedFiles(const Value& path) const;
    [[nodiscard]] Value policy() const;

    // Ends what is under way, with less than there is.
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
