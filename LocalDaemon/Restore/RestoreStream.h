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

// Brings files one by one into a staging folder, where the folders around them have to be, without the blocks
// that hold nothing but zeros: `restic restore` would write those too. Owners, times and extended attributes
// come as they were saved, and further names of a file that has been delivered as links to it. Belongs to one
// thread, which it blocks.
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

    // None, or why it failed; then nothing of it is left.
    [[nodiscard]] RestoreTrouble bring(const BackupIndex::Item& file, const StagingFolder& staging);
    // That what was brought last stands there now.
    void noteDelivered(const std::string& target);

private:
    // Snapshot, device, number, contents: a number that is given to a new file comes twice in one snapshot.
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
    std::map<Inode, Delivered> delivered_; // of those that have several names
    Inode last_;
    bool hasNames_ = false; // the last one has several
};

} // namespace kelvane
