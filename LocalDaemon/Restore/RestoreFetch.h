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

// Has restic bring what a plan names into a staging folder, as "<number of the snapshot>/<path>". Belongs to
// one thread, which it blocks.
//
// While the repository cannot be reached, restic is called again, and locks of the dead are taken away.
// Somebody who is at work in the repository is waited for however long that takes.
class RestoreFetch {
public:
    struct Tools {
        std::shared_ptr<const Restic> restic;
        std::shared_ptr<const BackupIndex> index;
        const StopSignal& stop;
        // Before each further try to reach the repository.
        std::vector<std::chrono::milliseconds> waits;
        // Why nothing comes for now; empty when it goes on.
        std::function<void(const std::string& reason)> onWait;
        std::function<void(const Arrival&)> onArrival;
    };
    explicit RestoreFetch(Tools tools) : tools_(std::move(tools)) {}

    // None, or why nothing can come. When it was stopped that is not told.
    [[nodiscard]] RestoreTrouble fetch(const RestorePlan& plan, const StagingFolder& staging,
                                       FileErrors& errors) const;

private:
    struct Try {
        RestoreTrouble trouble = {}; // none: what could come has come
        bool isPassing = false;      // it may go better in a while
        bool isLocked = false;       // by somebody who may be dead
        bool lacksContents = false;  // of a file: restic has brought none because of it
    };
    [[nodiscard]] Try fetchWhatThereIs(const RestorePlan& plan, const StagingFolder& staging,
                                       FileErrors& errors) const;
    [[nodiscard]] Try fetchOnce(const RestorePlan& plan, const Damage& lost, const StagingFolder& staging,
                                FileErrors& errors) const;
    [[nodiscard]] Try fetchFrom(std::uint32_t number, const SnapshotPaths& paths, const Damage& lost,
                                const StagingFolder& staging, FileErrors& errors) const;
    // What of the snapshots the repository does not hold any more; none when nobody can tell.
    [[nodiscard]] Damage lostContents() const;
    [[nodiscard]] Try callRestic(std::vector<std::string> arguments, const std::string& staging,
                                 std::string& errors) const;
    // What restic has said of files while it restored from the snapshot.
    void addErrorsOf(const std::string& snapshot, const std::string& said, FileErrors& errors) const;
    [[nodiscard]] std::set<std::string> specialFilesIn(const std::string& snapshot,
                                                       const std::string& folder) const;
    // After the locks of the dead have been taken away.
    [[nodiscard]] bool isSomebodyAtWork() const;

    const Tools tools_;
};

} // namespace kelvane
