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

// What decides over forgetting and must outlive the daemon: since when the clock has been steady, when
// something was last forgotten, which disappearances of many files there were and what a person has decided
// about them. A file that is missing or damaged counts as the beginning: nothing is forgotten before a whole
// `keepDays` have passed, and each disappearance is asked about again.
//
// All but the clock belongs to a repository. Disks that take turns at one place hold several, and what is
// known of one stays while another is there.
//
// Any thread; what changes is on the disk when a call returns. A failure to save is logged.
class RetentionRecord {
public:
    enum class Decision { None, Keep, Forget };

    struct Entry {
        Disappearance disappearance;
        Decision decision = Decision::None;

        friend bool operator==(const Entry&, const Entry&) = default;
    };

    RetentionRecord(std::string path, MachineClock clock);

    // From now on the repository with this id is meant; empty: one that is not known yet.
    void setRepository(const std::string& id);

    // To be called at least every hour: what the clock did while nobody looked is believed for some days
    // only.
    void noteClock();
    [[nodiscard]] RetentionLimits limits(std::chrono::days keep);

    // Forgetting and pruning are a day's worth at a time, and pruning comes a day after forgetting.
    [[nodiscard]] bool isForgettingDue();
    [[nodiscard]] bool isPruningDue();
    void noteForgotten();
    void notePruned();

    // A snapshot counts as incomplete from before it is made until it is known to hold all that it should.
    void noteBegun(std::uint64_t sequence);
    void noteMade(std::uint64_t sequence, bool isIncomplete);
    [[nodiscard]] bool isIncomplete(std::uint64_t sequence) const;

    void add(const Disappearance& disappearance);
    // Notes the time for snapshots that are new, and drops what needs no decision any more: the files are
    // back, or their snapshots are not there.
    void update(const BackupIndex& index);
    [[nodiscard]] std::vector<Entry> entries() const;
    // `id`: of a disappearance, or its beginning. Why it could not be decided, for people; empty when it is
    // and is saved.
    [[nodiscard]] std::string decide(const std::string& id, Decision decision);

private:
    struct OfRepository {
        std::int64_t forgotten = 0; // the last time, by the wall clock; 0: never
        bool isToPrune = false;
        std::set<std::uint64_t> incomplete;         // sequence numbers of snapshots
        std::map<std::uint64_t, std::int64_t> made; // by these: when they were known, by the wall clock
        std::vector<Entry> entries;

        friend bool operator==(const OfRepository&, const OfRepository&) = default;
    };
    using Repositories = std::map<std::string, OfRepository>; // by id
    struct Contents {
        std::string bootId; // of the boot in which the clock was last looked at
        // What the clocks showed when that boot was first seen.
        std::int64_t wallThen = 0;
        std::int64_t sinceBootThen = 0;
        std::int64_t lastSeen = 0;    // by the wall clock
        std::int64_t steadySince = 0; // likewise
        Repositories repositories;

        friend bool operator==(const Contents&, const Contents&) = default;
    };

    // With the mutex held.
    std::int64_t look();
    void noteNewSnapshots(const BackupIndex& index);
    [[nodiscard]] bool isDayOver(std::int64_t now) const;
    std::string save();
    [[nodiscard]] static Contents read(const std::string& path);
    [[nodiscard]] static Contents contentsFrom(const Value& value);
    [[nodiscard]] static Value valueOfRepository(const OfRepository& repository);
    [[nodiscard]] static OfRepository repositoryFrom(const Value& value);

    const std::string path_;
    const MachineClock clock_;

    mutable std::mutex mutex_; // guards what follows
    Contents contents_;
    Contents saved_;
    OfRepository* present_; // in the contents
};

} // namespace kelvane
