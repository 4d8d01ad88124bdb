#pragma once

#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/Restore/RestoreArrival.h"
#include "LocalDaemon/Restore/RestorePlan.h"
#include "LocalDaemon/Restore/RestoreTrouble.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kelvane {

// Calls restic to restore the contents of a plan into a staging folder, as "<number of the
// snapshot>/<path>". Belongs to one thread, which it blocks.
//
// While the repository cannot be reached, restic is called again after each of `waits`, and stale locks are
// removed. As long as another program has the repository locked, there is no limit.
class RestoreFetch {
public:
    struct Tools {
        std::shared_ptr<const Restic> restic;
        std::shared_ptr<const BackupIndex> index;
        const StopSignal& stop;
        // The wait before each retry to reach the repository.
        std::vector<std::chrono::milliseconds> waits;
        // Called with the reason why nothing arrives for now; empty when the restore continues.
        std::function<void(const std::string& reason)> onWait;
        std::function<void(const Arrival&)> onArrival;
    };
    explicit RestoreFetch(Tools tools) : tools_(std::move(tools)) {}

    // Returns no trouble, or why nothing can be restored. Being stopped is not reported as trouble.
    [[nodiscard]] RestoreTrouble fetch(const RestorePlan& plan, const StagingFolder& staging,
                                       FileErrors& errors) const;

private:
    struct Try {
        RestoreTrouble trouble = {}; // None when everything available was restored.
        bool isTransient = false;    // A retry may succeed.
        bool isLocked = false;       // The repository is locked; the lock may be stale.
        bool lacksContents = false;  // restic has restored nothing because a file has missing blobs.
    };
    [[nodiscard]] Try fetchWhatThereIs(const RestorePlan& plan, const StagingFolder& staging,
                                       FileErrors& errors) const;
    [[nodiscard]] Try fetchOnce(const RestorePlan& plan, const Damage& lost, const StagingFolder& staging,
                                FileErrors& errors) const;
    [[nodiscard]] Try fetchFrom(std::uint32_t number, const SnapshotPaths& paths, const Damage& lost,
                                const StagingFolder& staging, FileErrors& errors) const;
    // Returns which files of the snapshots have lost data in the repository; none when that cannot be
    // determined.
    [[nodiscard]] Damage lostContents() const;
    [[nodiscard]] Try callRestic(std::vector<std::string> arguments, const std::string& staging,
                                 std::string& errors) const;
    // Adds the errors that restic has reported for files while it restored from the snapshot.
    void addErrorsOf(const std::string& snapshot, const std::string& said, FileErrors& errors) const;
    [[nodiscard]] std::set<std::string> specialFilesIn(const std::string& snapshot,
                                                       const std::string& folder) const;
    // Removes stale locks. Returns whether that succeeded: then any lock that remains is in use.
    [[nodiscard]] bool clearStaleLocks() const;

    const Tools tools_;
};

} // namespace kelvane
