#pragma once

#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Index/RetentionRecord.h"
#include "LocalDaemon/Restic/Repository.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelvane {

class KnownRepositories;

// Keeps the index in step with the repository, in memory and as a file. Belongs to one thread, which it
// blocks; `index` is a value that other threads may read.
class IndexKeeper {
public:
    using Index = std::shared_ptr<const BackupIndex>; // Never null.
    // `changed`: the paths whose entries have changed, at most 1001; "/" stands for all. `isRebuilt`: every
    // file must be compared with the index again, since snapshots were listed, the repository is another
    // one, or the known damage has changed.
    using Publish =
        std::function<void(const Index& index, const std::vector<std::string>& changed, bool isRebuilt)>;

    // Raises and withdraws the alerts about retention and listing.
    struct Alerts {
        std::function<void(const Alert&)> raise = [](const Alert&) {};
        std::function<void(const std::string& kind)> withdraw = [](const std::string&) {};
    };

    // Loads the file. When it is missing, or cannot be used, which is logged, the index is empty until
    // `synchronize` has listed the repository.
    IndexKeeper(Repository repository, std::string path, MachineClock clock = readMachineClock);

    void setPublish(Publish publish) { publish_ = std::move(publish); }
    void setAlerts(Alerts alerts);
    // Called after a key was created for a new repository.
    void setKeyMade(std::function<void()> onKeyMade) { onKeyMade_ = std::move(onKeyMade); }
    // Called when the location has a different repository than before. No damage is known in it until
    // `setDamage` is called.
    void setRepositoryChanged(std::function<void(const std::string& id)> onRepositoryChanged) {
        onRepositoryChanged_ = std::move(onRepositoryChanged);
    }
    // Allows creating one new repository where the disk is not mounted, or where a repository existed
    // before. Any thread.
    void allowMakingAnyway() { mayMakeAnyway_ = true; }
    [[nodiscard]] const Index& index() const { return index_; }
    [[nodiscard]] const Repository& repository() const { return repository_; }

    // Opens the repository, removes stale locks, and lists the snapshots that the index does not have.
    // Creates the repository if `mayMake` is true, neither the index nor the key has known one there, and
    // its disk is mounted; `allowMakingAnyway` lifts the last two conditions.
    [[nodiscard]] ResticOutcome synchronize(bool mayMake, const StopSignal& stop);
    // Returns whether the last listing of the repository was complete. Otherwise `synchronize` must be
    // called before a snapshot is added, and no snapshot in the index counts as removed.
    [[nodiscard]] bool isCurrent() const { return isCurrent_; }
    // Returns the tag that marks the next snapshot as the newest. Must be called before the snapshot is
    // made; the snapshot counts as incomplete until it is added.
    [[nodiscard]] std::string nextSequenceTag();
    // Sets the known damage of this index and of those that follow it.
    void setDamage(Damage damage);
    [[nodiscard]] const Damage& damage() const { return *damage_; }
    // Adds a snapshot that was just made.
    struct Made {
        std::string id;
        bool isPartial = false;
        bool hasPartialTag = false;          // Otherwise a partial snapshot is tagged now.
        std::vector<std::string> lacks = {}; // As in Snapshot.
        // The time at which the backup began. None when nothing can have changed since.
        std::optional<FileTime> began = {};
        // Files that were read again although they looked unchanged.
        std::vector<std::string> readAgain = {};
    };
    [[nodiscard]] ResticOutcome add(Made made, const StopSignal& stop);
    // Forgets versions that were replaced or deleted more than `keep` ago, and prunes a day later; each
    // at most once a day. An interrupted call is continued by the next one. The index drops forgotten
    // snapshots before the long prune begins.
    [[nodiscard]] ResticOutcome forgetOld(std::chrono::days keep, const StopSignal& stop);

    // Any thread may call these two.
    //
    // Decides whether the snapshots with many files that disappeared at once may be forgotten. Returns
    // the reason of a failure, empty on success.
    [[nodiscard]] std::string decide(const std::string& disappearance, RetentionRecord::Decision decision);
    // Must be called every hour, so that a changed clock is noticed.
    void noteClock() { retention_.noteClock(); }

private:
    using Numbers = std::vector<std::uint32_t>; // Numbers of snapshots in ascending order.

    void noteVanished(const Repository::Listing& listing, const std::string& repositoryId);
    [[nodiscard]] ResticOutcome takeBackVanished(const StopSignal& stop);
    void takeLate(Repository::Contents& contents, const Made& made) const;
    [[nodiscard]] std::uint64_t nextSequence() const;
    [[nodiscard]] Repository::Making makingFor(bool mayMake, const KnownRepositories& known) const;
    void useRepository(const std::string& id);
    [[nodiscard]] Repository::Listing snapshots(const StopSignal& stop) const;
    [[nodiscard]] Repository::Listing withKnown(Repository::Listing listing) const;
    [[nodiscard]] Repository::Listing markedSnapshots(const StopSignal& stop) const;
    [[nodiscard]] ResticOutcome mark(Made& made, std::string_view tag, const StopSignal& stop) const;
    [[nodiscard]] ResticOutcome markMoved(Made& made, Snapshot& snapshot, const StopSignal& stop);
    [[nodiscard]] ResticOutcome rebuild(BackupIndex from, const Numbers& toList, const StopSignal& stop);
    [[nodiscard]] ResticOutcome listContents(BackupIndex& from, std::uint32_t number,
                                             const std::vector<Snapshot>& read, const StopSignal& stop) const;
    void keepUnfinished(const BackupIndex& from, const std::vector<Snapshot>& read);
    [[nodiscard]] BackupIndex withListed(const Repository::Listing& listing, const std::string& repositoryId,
                                         Numbers& toList) const;
    void lookForDisappearance(const BackupIndex& index, std::uint32_t number, const Numbers& listed);
    [[nodiscard]] bool holdDisappeared(const std::vector<std::string>& ids);
    [[nodiscard]] ResticOutcome forget(std::chrono::days keep, const StopSignal& stop);
    void save(BackupIndex index);
    void take(BackupIndex index, const std::vector<std::string>& changed, bool isRebuilt);
    void reportOrder(const Snapshot& made) const;
    void reportUnread(const Repository::Listing& listing) const;
    void reportDisappearances();

    const Repository repository_;
    const std::string path_;
    Index index_;
    std::string repositoryId_; // Of the repository that was opened last; empty when unknown.
    RetentionRecord retention_;
    bool isCurrent_ = false;
    std::uint64_t newestSequence_ = 0;
    std::set<std::string> vanished_; // The ids of snapshots that a listing lacked and none has had since.
    Alerts alerts_;
    std::mutex reporting_;           // Held while disappearances are reported; guards `reported_`.
    std::set<std::string> reported_; // The kinds of the raised alerts about disappearances.
    std::shared_ptr<const Damage> damage_ = std::make_shared<const Damage>();
    std::atomic<bool> mayMakeAnyway_{false};
    std::function<void()> onKeyMade_ = [] {};
    std::function<void(const std::string&)> onRepositoryChanged_ = [](const std::string&) {};
    Publish publish_ = [](const Index&, const std::vector<std::string>&, bool) {};
};

} // namespace kelvane
