#pragma once

#include "LocalDaemon/Restic/Damage.h"
#include "LocalDaemon/Restic/Repository.h"

#include <set>
#include <string>
#include <vector>

namespace kelvane {

// The findings of `restic check`.
struct CheckReport {
    // When it did not succeed, the state of the repository is unknown.
    ResticOutcome outcome;
    std::set<std::string> missingPacks; // Missing files, and files of the wrong size.
    std::set<std::string> damagedPacks; // Existing files with wrong contents.
    std::set<std::string> unknownPacks; // Existing files that no index lists.
    std::set<std::string> missingBlobs; // Blobs in no pack that the index lists.
    std::set<std::string> snapshots;    // Prefixes of the ids of unreadable snapshots.
    bool isIndexDamaged = false;
    bool hasErrors = false;
};

// Adds the finding, if any, of one line that restic printed.
void takeCheckLine(CheckReport& report, std::string_view line);

// Checks whether everything in a repository can be restored, and prepares the repository for storing
// damaged data again. Any thread; blocks on restic. The repository must outlive the object.
class RepositoryCheck {
public:
    explicit RepositoryCheck(const Repository& repository) : repository_(repository) {}

    enum class Source {
        Cache,     // Reads folders from restic's cache, which is fast.
        Repository // Reads everything from the repository itself.
    };
    // Checks that every pack exists in its full size, and that every file of every snapshot has its
    // blobs.
    [[nodiscard]] CheckReport structure(Source source, const StopSignal& stop) const;
    // Checks the structure and reads the packs of part `part`, counted from 1, of `parts`, at most 256.
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
    // Returns the `packs` whose files exist in the repository.
    [[nodiscard]] Packs present(const std::set<std::string>& packs, const StopSignal& stop) const;
    // Returns the `packs` with wrong contents, and those that cannot be read.
    [[nodiscard]] Packs damaged(const std::set<std::string>& packs, const StopSignal& stop) const;

    // Returns the `packs` that the snapshots of other computers need as well, or may need because some
    // of those snapshots cannot be read.
    [[nodiscard]] Packs neededByOthers(const std::set<std::string>& packs, const StopSignal& stop) const;

    // Returns whether packs can be set aside: only if the repository is a local folder.
    [[nodiscard]] bool canSetAside() const;
    // Moves packs to the folder "damaged" in the repository, which restic ignores. Returns the reason of
    // a failure, empty on success.
    [[nodiscard]] std::string setAside(const std::set<std::string>& packs) const;
    // Rebuilds the index from the existing packs: adds those that it does not list and drops missing
    // ones. The next call adds a pack that has come back.
    [[nodiscard]] ResticOutcome renewIndex(const StopSignal& stop) const;

private:
    [[nodiscard]] CheckReport check(std::vector<std::string> arguments, const StopSignal& stop) const;
    // An empty list of snapshots means all.
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
