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

// Runs some jobs together: calls restic to restore their contents into staging folders and delivers them
// from there, in portions when not everything fits. Belongs to one thread, which it blocks. When it is
// stopped, only complete files and no staging folder remain.
class RestoreRun {
public:
    struct Tools {
        std::shared_ptr<const Restic> restic;
        std::shared_ptr<const BackupIndex> index;
        RestoreJournal& journal;
        const StopSignal& stop;
        // Called with what has arrived of the files of all jobs.
        std::function<void(const Arrival&)> onArrival;
        // The wait before each retry to reach the repository.
        std::vector<std::chrono::milliseconds> waits;
        // Returns why nothing may be restored to the target; empty when it may.
        std::function<std::string(const std::string& target)> refusal;
        // Called with the reason why nothing arrives for now; empty when the restore continues.
        std::function<void(const std::string& reason)> onWait;
        std::function<std::uint64_t(const std::string& folder)> freeSpace; // In bytes.
    };
    explicit RestoreRun(Tools tools);

    using Failures = std::vector<RestoreFailure>;
    // Returns for each job what could not be restored. No job's source may be inside another's.
    [[nodiscard]] std::vector<Failures> run(const std::vector<RestoreJob>& jobs);

private:
    void addJob(std::size_t number, const RestoreJob& job);
    void addPiece(const RestorePiece& piece);
    // Restricts access to an existing target folder that is not the original location, before anything is
    // delivered to it.
    void narrow(const RestorePiece& folder);
    // Divides the pieces into portions for `freeSpace` free bytes. The divided folders are delivered last, so
    // access to them is restricted here.
    [[nodiscard]] RestorePortions divide(const RestorePieces& pieces, std::uint64_t freeSpace);
    void runGroup(const std::string& folder, const RestorePieces& pieces);
    void runPortions(const std::string& folder, RestorePortions parts);
    void noteFailures(RestorePieces& folders) const;
    // Returns the divided folders, which must be delivered after their contents.
    [[nodiscard]] RestorePieces runWithoutSpace(const std::string& folder, const RestorePieces& pieces);
    void fetchAndDeliver(const std::string& folder, const RestorePieces& pieces);
    // Files larger than the free space may be sparse: they are restored without writing their holes.
    void streamAndDeliver(const std::string& folder, const RestorePieces& pieces);
    void streamAndDeliver(RestoreStream& stream, const StagingFolder& staging, const RestorePiece& file);
    template <class Work>
    void inStaging(const std::string& folder, const RestorePieces& pieces, Work work);
    void deliver(const StagingFolder& staging, const FileErrors& errors, const RestorePieces& pieces);
    void finishMadeFolders();
    void fail(const RestorePieces& pieces, const RestoreTrouble& trouble);
    void failWithoutSpace(const RestorePiece& piece, const std::string& folder);
    void countArrival(const Arrival& arrival) const;

    const Tools tools_;
    const RestoreFetch fetch_;
    SavedNodes nodes_;
    std::uint32_t firstJob_ = 0;
    std::map<std::string, RestorePieces> groups_; // By the parent folder of the staging folder.
    std::vector<Failures> failures_;
    std::vector<RestoreDelivery::MadeFolder> made_;
    std::uint64_t filesBefore_ = 0; // The number of files in finished portions.
};

} // namespace kelvane
