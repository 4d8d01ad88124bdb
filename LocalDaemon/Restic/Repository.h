#pragma once

#include "LocalDaemon/Restic/Restic.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "LocalDaemon/Restic/Snapshots.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvane {

// The snapshots of one computer in a repository that may be shared with others. The computer's own
// snapshots are those with its tag. Any thread; every call blocks on restic for at least half a second.
class Repository {
public:
    Repository(std::shared_ptr<const Restic> restic, std::uint32_t computerNumber);

    [[nodiscard]] const Restic& restic() const { return *restic_; }
    [[nodiscard]] const std::string& tag() const { return tag_; }

    struct Opening {
        ResticOutcome outcome;
        std::string id; // The id of the repository, which never changes.
        bool wasMade = false;
        bool wasKeyMade = false;
    };
    // Whether `open` creates a repository when there is none.
    enum class Making {
        Never,
        UnlessDiskIsAway, // Not where a disk is not mounted, since that disk may have the repository.
        Always
    };
    // Blocks while the remote file system of the repository does not respond, because a restic started
    // now could not be stopped. After `longestSilence` the outcome is Unreachable.
    [[nodiscard]] ResticOutcome waitForAnswer(const StopSignal& stop) const;
    // Without a password file a new repository gets a new key. An existing repository keeps its own key,
    // and the outcome then is WrongPassword.
    [[nodiscard]] Opening open(Making making, const StopSignal& stop) const;

    struct Listing {
        ResticOutcome outcome;
        std::vector<Snapshot> snapshots; // The snapshots of this computer, oldest first.
        // restic's reason why some snapshots could not be read. Empty when the list is complete.
        std::string unread;
    };
    [[nodiscard]] Listing snapshots(const StopSignal& stop) const;

    struct Contents {
        ResticOutcome outcome;
        Snapshot snapshot; // `isPartial` is false, whatever the snapshot's tags.
        // Each folder comes before its contents. Only files, folders and links are included.
        std::vector<SnapshotItem> items;
    };
    // Lists everything in the snapshot.
    [[nodiscard]] Contents list(const std::string& snapshotId, const StopSignal& stop) const;

    // Adds a tag to these snapshots, which changes their ids.
    [[nodiscard]] ResticOutcome addTag(std::string_view tag, const std::vector<std::string>& ids,
                                       const StopSignal& stop) const;

    // Forgets exactly these snapshots.
    [[nodiscard]] ResticOutcome forget(const std::vector<std::string>& ids, const StopSignal& stop) const;
    // Removes data that no snapshot needs any more. This may take hours, during which nobody else can
    // use the repository. It may be stopped at any time.
    [[nodiscard]] ResticOutcome prune(const StopSignal& stop) const;

    struct Locks {
        ResticOutcome outcome;
        // Who holds the locks that are in use, one per line, for the user. Empty when none is in use.
        std::string holders;
    };
    // Removes the locks of dead processes that this daemon or an earlier one started, and locks that were
    // not renewed for half an hour since this process first saw them.
    [[nodiscard]] Locks
    clearStaleLocks(const StopSignal& stop,
                    std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now()) const;

private:
    [[nodiscard]] ResticOutcome correctNames(std::vector<SnapshotItem>& items, const std::string& snapshotId,
                                             std::size_t headerLines, const StopSignal& stop) const;
    [[nodiscard]] ResticOutcome remove(const std::vector<RepositoryLock>& locks,
                                       const std::vector<RepositoryLock>& others, bool areAllKnown,
                                       const StopSignal& stop) const;
    [[nodiscard]] Opening openWith(const Restic& restic, Making making, const StopSignal& stop) const;
    [[nodiscard]] Opening openWithoutKey(Making making, const StopSignal& stop) const;

    const std::shared_ptr<const Restic> restic_;
    const std::string tag_;
};

inline constexpr const char* partialTag = "part";

} // namespace kelvane
