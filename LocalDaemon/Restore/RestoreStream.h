#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/Restore/RestoreArrival.h"
#include "LocalDaemon/Restore/SavedNodes.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
#include <tuple>

namespace kelvane {

// Restores files one by one into a staging folder, in which their parent folders must exist, and skips
// blocks of zeros, which `restic restore` would write. Owners, times and extended attributes are
// restored as saved, and further names of a delivered file become links to it. Belongs to one thread,
// which it blocks.
class RestoreStream {
public:
    struct Tools {
        std::shared_ptr<const Restic> restic;
        std::shared_ptr<const BackupIndex> index;
        SavedNodes& nodes;
        const StopSignal& stop;
        std::function<void(const Arrival&)> onArrival;
    };
    explicit RestoreStream(Tools tools) : tools_(std::move(tools)) {}

    // Streams the file into the staging folder. Returns no trouble, or the reason for the failure; a partial
    // file is removed.
    [[nodiscard]] RestoreTrouble bring(const BackupIndex::Item& file, const StagingFolder& staging);
    // Records that the last restored file was delivered to this target.
    void noteDelivered(const std::string& target);

private:
    // Snapshot, device, inode number and contents, since a reused inode number occurs twice in one
    // snapshot.
    using Inode = std::tuple<std::uint32_t, std::uint64_t, std::uint64_t, std::string>;
    struct Delivered {
        std::string target;
        dev_t device = 0;
        ino_t number = 0;
    };
    [[nodiscard]] bool linkDelivered(int around, const std::string& name) const;
    [[nodiscard]] RestoreTrouble write(int file, const BackupIndex::Item& item,
                                       const StagingFolder& staging) const;

    const Tools tools_;
    std::map<Inode, Delivered> delivered_; // The delivered files that have several names.
    Inode last_;
    bool hasNames_ = false; // The last restored file has several names.
};

} // namespace kelvane
