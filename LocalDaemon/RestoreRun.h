#pragma once

#include "LocalDaemon/Restic.h"
#include "LocalDaemon/RestoreArrival.h"
#include "LocalDaemon/RestoreDelivery.h"
#include "LocalDaemon/RestoreJob.h"
#include "LocalDaemon/RestoreJournal.h"
#include "LocalDaemon/RestorePlan.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kelvane {

// Does some jobs together: has restic bring what they want into staging folders, and delivers it from there.
// Belongs to one thread, which it blocks.
//
// While the repository cannot be reached, restic is called again, and locks of the dead are taken away; what
// is missing after the last wait has failed. Somebody who is at work in the repository is waited for however
// long that takes. Stopped, it leaves whole files and no staging folder.
class RestoreRun {
public:
    struct Tools {
        std::shared_ptr<const Restic> restic;
        std::shared_ptr<const BackupIndex> index;
        RestoreJournal& journal;
        const StopSignal& stop;
        // What has come of all the jobs' files; on any thread, one at a time.
        std::function<void(const Arrival&)> onArrival;
        // Before each further try to reach the repository.
        std::vector<std::chrono::milliseconds> waits;
        // Why nothing may be put there; empty when it may.
        std::function<std::string(const std::string& target)> refusal;
    };
    explicit RestoreRun(Tools tools) : tools_(std::move(tools)) {}

    using Failures = std::vector<RestoreFailure>;
    // For each job what could not be restored. No job's source may lie in another's.
    [[nodiscard]] std::vector<Failures> run(const std::vector<RestoreJob>& jobs);

private:
    struct Piece {
        std::size_t job;
        const BackupIndex::Item* item;
        std::string target;
    };
    using Pieces = std::vector<Piece>;

    void addJob(std::size_t number, const RestoreJob& job);
    void addPiece(const Piece& piece);
    void runGroup(const std::string& folder, const Pieces& pieces, const std::string& stagingName);
    void fetchAndDeliver(const std::string& staging, const Pieces& pieces);
    // After the locks of the dead have been taken away.
    [[nodiscard]] bool isSomebodyAtWork() const;
    void deliver(const RestoreDelivery::Staged& staged, const Pieces& pieces);
    struct Fetching {
        std::string failure;    // empty: what could come has come
        bool isPassing = false; // it may go better in a while
        bool isLocked = false;  // by somebody who may be dead
    };
    [[nodiscard]] Fetching fetch(const SnapshotPaths& plan, RestoreDelivery::Staged& staged) const;
    [[nodiscard]] Fetching callRestic(std::vector<std::string> arguments, const std::string& staging,
                                      std::string& errors) const;
    void fail(const Pieces& pieces, const std::string& reason);
    void countArrival(const Arrival& arrival) const;

    const Tools tools_;
    std::map<std::string, Pieces> groups_; // by the folder that their staging folder stands in
    std::vector<Failures> failures_;
    std::uint64_t filesBefore_ = 0; // of groups that are done with
};

} // namespace kelvane
