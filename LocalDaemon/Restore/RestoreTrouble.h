#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restic/Restic.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace kelvane {

// The errors that restic has reported for single files, by their path in the snapshot.
struct FileErrors {
    using ByPath = std::map<std::string, std::string, std::less<>>;

    ByPath items;
    // Errors of unknown files at or below the path, which therefore count for everything there.
    ByPath below;

    // Returns null when no error affects the path.
    [[nodiscard]] const std::string* errorAt(std::string_view path) const;
};

// Returns the paths of devices, pipes and sockets in a folder of a snapshot, as restic's JSON has them.
// The index does not contain them.
using SpecialFiles = std::function<std::set<std::string>(const std::string& folder)>;

// Adds the errors in restic's standard error, `text`. Names may contain line breaks and the separators
// between a path and its error, so each prefix of an error that is in the backup is taken as its path.
void addFileErrors(FileErrors& errors, const BackupIndex& index, std::string_view text,
                   const SpecialFiles& specialFiles);

// The reason why something cannot be restored.
struct RestoreTrouble {
    std::string reason = {};     // The reason for the user; empty when there is no trouble.
    bool isSnapshotGone = false; // The repository lacks a snapshot that the index has.

    [[nodiscard]] bool isNone() const { return reason.empty(); }
};
[[nodiscard]] RestoreTrouble goneSnapshot();

// Returns the reason why restic failed, with restic's own message.
[[nodiscard]] RestoreTrouble restoreTroubleFor(const ResticOutcome& outcome);

// Returns whether a retry may succeed. After errors for single files only, it may if the connection failed,
// unless exactly the same files failed in the attempt `before`. In a local folder, a truncated file is
// damaged and no sign of a failed connection.
[[nodiscard]] bool isTransient(const ResticOutcome& outcome);
[[nodiscard]] bool isTransient(const FileErrors& errors, const FileErrors& before, bool isPlaceAFolder);

} // namespace kelvane
