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

// Keeps the index of what is backed up true to the repository, in memory and as a file. Belongs to one
// thread, which it blocks; `index` is a value that others may read.
class IndexKeeper {
public:
    using Index = std::shared_ptr<const BackupIndex>; // never null
    // `changed`: the paths that the index says another thing of, at most a thousand and one. `isRebuilt`: it
    // is another index altogether.
    using Publish =
        std::function<void(const Index& index, const std::vector<std::string>& changed, bool isRebuilt)>;

    // Who tells people of what they have to know or decide.
    struct Alerts {
        std::function<void(const Alert&)> raise = [](const Alert&) {};
        std::function<void(const std::string& kind)> withdraw = [](const std::string&) {};
    };

    // Reads the file; without one, or with a damaged one, which is logged, nothing is backed up until
    // `synchronize` has found out better.
    IndexKeeper(Repository repository, std::string path, MachineClock clock = readMachineClock);

    void setPublish(Publish publish) { publish_ = std::move(publish); }
    void setAlerts(Alerts alerts);
    // Called after a key has been made for a new repository.
    void setKeyMade(std::function<void()> onKeyMade) { onKeyMade_ = std::move(onKeyMade); }
    // Called when the repository that is there is another one than before. Nothing in it is known to be
    // damaged until that says so.
    void setRepositoryChanged(std::function<void(const std::string& id)> onRepositoryChanged) {
        onRepositoryChanged_ = std::move(onRepositoryChanged);
    }
    // A new repository may be made, once, where a disk belongs that is away, or where there was one before.
    // Any thread.
    void allowMakingAnyway() { mayMakeAnyway_ = true; }
    [[nodiscard]] const Index& index() const { return index_; }
    [[nodiscard]] const Repository& repository() const { return repository_; }

    // Finds the repository, takes locks of the dead away, and lists what the index does not know of. Makes
    // the repository if `mayMake` and neither the index nor the key has known one there.
    [[nodiscard]] ResticOutcome synchronize(bool mayMake, const StopSignal& stop);
    // Whether the last answer of the repository was whole. Else `synchronize` is needed before anything is
    // added, and none of what the index knows counts as gone.
    [[nodiscard]] bool isCurrent() const { return isCurrent_; }
    // The tag for the next snapshot, which tells that it is newer than all others. To be asked for before
    // that is made: until it is added it counts as incomplete.
    [[nodiscard]] std::string nextSequenceTag();
    // What is known to be damaged from now on, in this index and in those that follow it.
    void setDamage(Damage damage);
    [[nodiscard]] const Damage& damage() const { return *damage_; }
    // Takes over a snapshot that was just made.
    struct Made {
        std::string id;
        bool isPartial = false;
        bool hasPartialTag = false;              // else a partial one gets it now
        std::vector<std::string> lacks = {};     // as a snapshot has it
        std::optional<FileTime> began = {};      // none: nothing has changed meanwhile
        std::vector<std::string> readAgain = {}; // files, whatever they look like
    };
    [[nodiscard]] ResticOutcome add(Made made, const StopSignal& stop);
    // Forgets versions that were replaced or deleted so long ago, and prunes a day later; neither more often
    // than once a day. What was stopped goes on the next time. The index says what is forgotten before the
    // long work begins.
    [[nodiscard]] ResticOutcome forgetOld(std::chrono::days keep, const StopSignal& stop);

    // These two on any thread.
    //
    // Whether the snapshots that hold many files that disappeared at once may be forgotten. Why it could not
    // be decided; empty when it is.
    [[nodiscard]] std::string decide(const std::string& disappearance, RetentionRecord::Decision decision);
    // To be called every hour, so that a clock that is set is noticed.
    void noteClock() { retention_.noteClock(); }

private:
    using Numbers = std::vector<std::uint32_t>; // of snapshots, ascending

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
    std::string repositoryId_; // of the repository that was there last; empty: not known yet
    RetentionRecord retention_;
    bool isCurrent_ = false;
    std::uint64_t newestSequence_ = 0;
    std::set<std::string> vanished_; // snapshots that were not there the last time
    Alerts alerts_;
    std::mutex reporting_;           // also guards what follows
    std::set<std::string> reported_; // kinds of alerts that stand for disappearances
    std::shared_ptr<const Damage> damage_ = std::make_shared<const Damage>();
    std::atomic<bool> mayMakeAnyway_{false};
    std::function<void()> onKeyMade_ = [] {};
    std::function<void(const std::string&)> onRepositoryChanged_ = [](const std::string&) {};
    Publish publish_ = [](const Index&, const std::vector<std::string>&, bool) {};
};

} // namespace kelvane
