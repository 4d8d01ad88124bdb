#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restic/Restic.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace kelvane {

// What restic has said of single files, by their path in the snapshot.
struct FileErrors {
    using ByPath = std::map<std::string, std::string, std::less<>>;

    ByPath items;
    // Where it cannot be told which file is meant: of anything at or below the path.
    ByPath below;

    // Null when nothing is known against the path.
    [[nodiscard]] const std::string* errorAt(std::string_view path) const;
};

// The paths of devices, pipes and sockets that a snapshot holds in a folder, as restic's JSON has them: the
// index does not have them.
using SpecialFiles = std::function<std::set<std::string>(const std::string& folder)>;

// Adds what restic's standard error has of a call. Names may hold line ends and whatever else separates a
// path from its error: each beginning of the text that is in the backup is taken for the path.
void addFileErrors(FileErrors& errors, const BackupIndex& index, std::string_view text,
                   const SpecialFiles& specialFiles);

// Why something cannot be restored.
struct RestoreTrouble {
    std::string reason = {};     // for people; empty: there is no trouble
    bool isSnapshotGone = false; // the repository does not hold what the index says

    [[nodiscard]] bool isNone() const { return reason.empty(); }
};
[[nodiscard]] RestoreTrouble goneSnapshot();

// Why restic could not go on: what that means for a restore, and restic's own word.
[[nodiscard]] RestoreTrouble restoreTroubleFor(const ResticOutcome& outcome);

// Whether it may go better in a while. Where restic has done what it could except for single files, only when
// the way to the place was at fault, and when it is not stuck with the very files of the try before. In a
// folder a file that ends too early is a damaged one.
[[nodiscard]] bool mayPass(const ResticOutcome& outcome);
[[nodiscard]] bool mayPass(const FileErrors& errors, const FileErrors& before, bool isPlaceAFolder);

} // namespace kelvane
