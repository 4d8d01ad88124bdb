#pragma once

#include "LocalDaemon/BackupIndex.h"
#include "LocalDaemon/Repository.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvane {

// Keeps the index of what is backed up true to the repository, in memory and as a file. Belongs to one
// thread, which it blocks; `index` is a value that others may read.
class IndexKeeper {
public:
    using Index = std::shared_ptr<const BackupIndex>; // never null
    // `changed`: the paths that the index says another thing of, at most a thousand and one. `isRebuilt`: it
    // is another index altogether.
    using Publish =
        std::function<void(const Index& index, const std::vector<std::string>& changed, bool isRebuilt)>;

    // Reads the file; without one, or with a damaged one, which is logged, nothing is backed up until
    // `synchronize` has found out better.
    IndexKeeper(Repository repository, std::string path);

    void setPublish(Publish publish) { publish_ = std::move(publish); }
    [[nodiscard]] const Index& index() const { return index_; }
    [[nodiscard]] const Repository& repository() const { return repository_; }

    // Finds the repository, takes locks of the dead away, and lists what the index does not know of. Makes
    // the repository if `mayMake` and nothing has ever been backed up there.
    [[nodiscard]] ResticOutcome synchronize(bool mayMake, const StopSignal& stop);
    // Takes over a snapshot that was just made.
    [[nodiscard]] ResticOutcome add(const std::string& snapshotId, bool isPartial, const StopSignal& stop);
    // Forgets what has gone from disk or selection for so long. Not more often than once a day; what was
    // stopped goes on the next time. The index says what is forgotten before the long work begins.
    [[nodiscard]] ResticOutcome forgetOld(std::chrono::days keep, const StopSignal& stop);

private:
    [[nodiscard]] ResticOutcome rebuild(BackupIndex from, const std::string& repositoryId,
                                        const std::vector<Snapshot>& snapshots, const StopSignal& stop);
    void take(BackupIndex index, const std::vector<std::string>& changed, bool isRebuilt);

    const Repository repository_;
    const std::string path_;
    Index index_;
    bool isToPrune_ = false;
    Publish publish_ = [](const Index&, const std::vector<std::string>&, bool) {};
};

} // namespace kelvane
