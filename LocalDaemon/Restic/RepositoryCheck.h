#pragma once

#include "LocalDaemon/Restic/Damage.h"
#include "LocalDaemon/Restic/Repository.h"

#include <set>
#include <string>
#include <vector>

namespace kelvane {

// What `restic check` has said.
struct CheckReport {
    ResticOutcome outcome; // not succeeded: it could not find out
    std::set<std::string> missingPacks;
    std::set<std::string> damagedPacks; // files that are there, with other contents
    std::set<std::string> unknownPacks; // files that are there, and no index names them
    std::set<std::string> missingBlobs; // in no pack that the index knows
    std::set<std::string> snapshots;    // that cannot be read, the beginnings of their ids
    bool isIndexDamaged = false;
    bool hasErrors = false;
};

// Takes one line that restic prints.
void takeCheckLine(CheckReport& report, std::string_view line);

// Looks whether a repository can give back what is in it, and makes room for storing again what it cannot.
// Any thread; blocks on restic.
class RepositoryCheck {
public:
    explicit RepositoryCheck(const Repository& repository) : repository_(repository) {}

    enum class Source {
        Cache,     // folders are read from restic's cache, which is quick
        Repository // everything is read from the repository itself
    };
    // That every pack is there in its full length, and that every file of every snapshot has its blobs.
    [[nodiscard]] CheckReport structure(Source source, const StopSignal& stop) const;
    // The same, and reads the packs of one part of `parts`, at most 256.
    [[nodiscard]] CheckReport contents(unsigned part, unsigned parts, const StopSignal& stop) const;

    struct Located {
        ResticOutcome outcome;
        Damage damage;
    };
    // A repository may hold the snapshots of other computers as well.
    enum class Snapshots { Own, All };
    [[nodiscard]] Located locate(const CheckReport& report, Snapshots snapshots,
                                 const StopSignal& stop) const;

    struct Packs {
        ResticOutcome outcome;
        std::set<std::string> ids;
    };
    // Those of `packs` whose files are in the repository.
    [[nodiscard]] Packs present(const std::set<std::string>& packs, const StopSignal& stop) const;
    // Those of `packs` that hold other contents than was written, or cannot be read.
    [[nodiscard]] Packs damaged(const std::set<std::string>& packs, const StopSignal& stop) const;

    // Those of `packs` that snapshots of others in the repository need as well, or of which nobody can tell:
    // some of their snapshots cannot be read.
    [[nodiscard]] Packs neededByOthers(const std::set<std::string>& packs, const StopSignal& stop) const;

    // Whether the packs can be moved out of the way: in a folder they can.
    [[nodiscard]] bool canSetAside() const;
    // Moves packs to the folder "damaged" in the repository, which restic does not look at. Returns why it
    // failed; empty: it did not.
    [[nodiscard]] std::string setAside(const std::set<std::string>& packs) const;
    // Makes the index name the packs that are in the repository: takes in those that it does not name, and
    // drops those that are not there. One that comes back later is taken in again by the next call.
    [[nodiscard]] ResticOutcome renewIndex(const StopSignal& stop) const;

private:
    [[nodiscard]] CheckReport check(std::vector<std::string> arguments, const StopSignal& stop) const;
    // In these snapshots; of none: in all.
    [[nodiscard]] ResticOutcome search(const CheckReport& report, Snapshots snapshots,
                                       const std::vector<std::string>& in, Damage& damage,
                                       const StopSignal& stop) const;
    [[nodiscard]] ResticOutcome addNeeded(const std::set<std::string>& packs,
                                          const std::vector<Snapshot>& own, std::set<std::string>& needed,
                                          const StopSignal& stop) const;
    [[nodiscard]] ResticOutcome find(std::vector<std::string> arguments, const std::set<std::string>& ids,
                                     Damage& damage, const StopSignal& stop) const;

    const Repository& repository_;
};

} // namespace kelvane
