#pragma once

#include "LocalDaemon/Index/Retention.h"
#include "Platform/MachineClock.h"

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelvane {

// The persistent state of retention: since when the clock has been steady, when snapshots were last
// forgotten, which disappearances there were, and what the user decided about them. A missing or damaged
// file is a fresh start: nothing is forgotten before a full `keepDays`, and the user is asked about each
// disappearance again.
//
// Everything but the clock belongs to a repository. Disks that are mounted in turn at one location have
// several, and the records of one are kept while another is in use.
//
// Any thread; changes are on the disk when a call returns. A failure to save is logged.
class RetentionRecord {
public:
    enum class Decision { None, Keep, Forget };

    struct Entry {
        Disappearance disappearance;
        Decision decision = Decision::None;

        friend bool operator==(const Entry&, const Entry&) = default;
    };

    RetentionRecord(std::string path, MachineClock clock);

    // Selects the records of the repository with this id; an empty id means that it is not known yet.
    void setRepository(const std::string& id);

    // Must be called at least every hour: after a reboot the time since the last call tells how long the
    // machine was off, and more than four days of that count as a change of the clock.
    void noteClock();
    [[nodiscard]] RetentionLimits limits(std::chrono::days keep);

    // Forgetting and pruning are done at most once a day, and pruning a day after forgetting.
    [[nodiscard]] bool isForgettingDue();
    [[nodiscard]] bool isPruningDue();
    void noteForgotten();
    void notePruned();

    // A snapshot counts as incomplete from before it is made until it is known to be complete.
    void noteBegun(std::uint64_t sequence);
    void noteMade(std::uint64_t sequence, bool isIncomplete);
    [[nodiscard]] bool isIncomplete(std::uint64_t sequence) const;

    void add(const Disappearance& disappearance);
    // Records the time of new snapshots, and drops disappearances that need no decision any more because
    // the files are back or their snapshots have been removed.
    void update(const BackupIndex& index);
    [[nodiscard]] std::vector<Entry> entries() const;
    // `id`: the id of a disappearance, or a prefix of it. Returns the reason of a failure for the user,
    // empty once the decision is saved.
    [[nodiscard]] std::string decide(const std::string& id, Decision decision);

private:
    struct OfRepository {
        std::int64_t forgotten = 0; // The last time by the wall clock; 0 for never.
        bool isToPrune = false;
        std::set<std::uint64_t> incomplete; // Sequence numbers of snapshots.
        // When each snapshot was first listed, by the wall clock; the keys are sequence numbers.
        std::map<std::uint64_t, std::int64_t> firstListed;
        std::vector<Entry> entries;

        friend bool operator==(const OfRepository&, const OfRepository&) = default;
    };
    using Repositories = std::map<std::string, OfRepository>; // By repository id.
    struct Contents {
        std::string bootId; // The boot in which the clock was last read.
        // The clocks when that boot was first seen.
        std::int64_t wallThen = 0;
        std::int64_t sinceBootThen = 0;
        std::int64_t lastSeen = 0;    // By the wall clock.
        std::int64_t steadySince = 0; // By the wall clock.
        Repositories repositories;

        friend bool operator==(const Contents&, const Contents&) = default;
    };

    // The mutex must be held.
    std::int64_t readClock();
    void noteNewSnapshots(const BackupIndex& index);
    [[nodiscard]] bool isDayOver(std::int64_t now) const;
    std::string save();
    [[nodiscard]] static Contents read(const std::string& path);
    [[nodiscard]] static Contents contentsFrom(const Value& value);
    [[nodiscard]] static Value valueOfRepository(const OfRepository& repository);
    [[nodiscard]] static OfRepository repositoryFrom(const Value& value);

    const std::string path_;
    const MachineClock clock_;

    mutable std::mutex mutex_; // Guards the members below.
    Contents contents_;
    Contents saved_;
    OfRepository* present_; // The selected repository's part of `contents_`.
};

} // namespace kelvane
