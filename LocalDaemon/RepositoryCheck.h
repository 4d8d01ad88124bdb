#pragma once

#include "LocalDaemon/Damage.h"
#include "LocalDaemon/Repository.h"

#include <set>
#include <string>

namespace kelvane {

// What `restic check` has said.
struct CheckReport {
    ResticOutcome outcome; // not succeeded: it could not find out
    std::set<std::string> missingPacks;
    std::set<std::string> damagedPacks; // files that are there, with other contents
    std::set<std::string> missingBlobs; // in no pack that the index knows
    std::set<std::string> snapshots;    // that cannot be read, the beginnings of their ids
    bool isIndexDamaged = false;
    bool hasErrors = false;

    // What backing up again mends, once the index does not list it any more.
    [[nodiscard]] bool canIndexBeRenewed() const {
        return isIndexDamaged || !missingPacks.empty() || !damagedPacks.empty();
    }
};

// Takes one line that restic prints on standard error.
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
        Damage damage; // of this computer's snapshots
    };
    [[nodiscard]] Located locate(const CheckReport& report, const StopSignal& stop) const;

    // Whether the packs can be moved out of the way: in a folder they can.
    [[nodiscard]] bool canSetAside() const;
    // Moves packs to the folder "damaged" in the repository, which restic does not look at. Returns why it
    // failed; empty: it did not.
    [[nodiscard]] std::string setAside(const std::set<std::string>& packs) const;
    // Drops from the index what is not in the repository any more.
    [[nodiscard]] ResticOutcome renewIndex(const StopSignal& stop) const;

private:
    [[nodiscard]] CheckReport check(std::vector<std::string> arguments, const StopSignal& stop) const;
    [[nodiscard]] ResticOutcome find(const char* kind, const std::set<std::string>& ids, Damage& damage,
                                     const StopSignal& stop) const;

    const Repository& repository_;
};

} // namespace kelvane
