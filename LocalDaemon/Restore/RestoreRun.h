#pragma once

#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/Restore/RestoreArrival.h"
#include "LocalDaemon/Restore/RestoreDelivery.h"
#include "LocalDaemon/Restore/RestoreFetch.h"
#include "LocalDaemon/Restore/RestorePlan.h"
#include "LocalDaemon/Restore/RestorePortions.h"
#include "LocalDaemon/Restore/RestoreStream.h"
#include "LocalDaemon/Restore/Staging/RestoreJob.h"
#include "LocalDaemon/Restore/Staging/RestoreJournal.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kelvane {

// Does some jobs together: has restic bring what they want into staging folders, and delivers it from there,
// in portions where all of it does not fit. Belongs to one thread, which it blocks. Stopped, it leaves whole
// files and no staging folder.
class RestoreRun {
public:
    struct Tools {
        std::shared_ptr<const Restic> restic;
        std::shared_ptr<const BackupIndex> index;
        RestoreJournal& journal;
        const StopSignal& stop;
        // What has come of all the jobs' files.
        std::function<void(const Arrival&)> onArrival;
        // Before each further try to reach the repository.
        std::vector<std::chrono::milliseconds> waits;
        // Why nothing may be put there; empty when it may.
        std::function<std::string(const std::string& target)> refusal;
        // Why nothing comes for now; empty when it goes on.
        std::function<void(const std::string& reason)> onWait;
        std::function<std::uint64_t(const std::string& folder)> freeSpace; // bytes
    };
    explicit RestoreRun(Tools tools);

    using Failures = std::vector<RestoreFailure>;
    // For each job what could not be restored. No job's source may lie in another's.
    [[nodiscard]] std::vector<Failures> run(const std::vector<RestoreJob>& jobs);

private:
    void addJob(std::size_t number, const RestoreJob& job);
    void addPiece(const RestorePiece& piece);
    // A folder elsewhere than in its own place, before anything is put into it.
    void narrow(const RestorePiece& folder);
    // In portions for that room (bytes), with the folders that come last narrowed already.
    [[nodiscard]] RestorePortions divide(const RestorePieces& pieces, std::uint64_t room);
    void runGroup(const std::string& folder, const RestorePieces& pieces);
    void runPortions(const std::string& folder, RestorePortions parts);
    void noteFailures(RestorePieces& folders) const;
    // Returns the folders that are to come when what is in them has.
    [[nodiscard]] RestorePieces runWithoutRoom(const std::string& folder, const RestorePieces& pieces);
    void fetchAndDeliver(const std::string& folder, const RestorePieces& pieces);
    // Files that are larger than what is free may have holes: they are written without what these hold.
    void streamAndDeliver(const std::string& folder, const RestorePieces& pieces);
    void streamAndDeliver(RestoreStream& stream, const StagingFolder& staging, const RestorePiece& file);
    template <class Work>
    void inStaging(const std::string& folder, const RestorePieces& pieces, Work work);
    void deliver(const StagingFolder& staging, const FileErrors& errors, const RestorePieces& pieces);
    void finishMadeFolders();
    void fail(const RestorePieces& pieces, const RestoreTrouble& trouble);
    void failWithoutRoom(const RestorePiece& piece, const std::string& folder);
    void countArrival(const Arrival& arrival) const;

    const Tools tools_;
    const RestoreFetch fetch_;
    SavedNodes nodes_;
    std::uint32_t firstJob_ = 0;
    std::map<std::string, RestorePieces> groups_; // by the folder that their staging folder stands in
    std::vector<Failures> failures_;
    std::vector<RestoreDelivery::MadeFolder> made_;
    std::uint64_t filesBefore_ = 0; // of portions that are done with
};

} // namespace kelvane
