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

// The snapshots of one computer in a repository, which it may share with others: its own are those with its
// tag. Any thread; everything blocks on restic, half a second at least.
class Repository {
public:
    Repository(std::shared_ptr<const Restic> restic, std::uint32_t computerNumber);

    [[nodiscard]] const Restic& restic() const { return *restic_; }
    [[nodiscard]] const std::string& tag() const { return tag_; }

    struct Opening {
        ResticOutcome outcome;
        std::string id; // of the repository, the same for its whole life
        bool wasMade = false;
        bool wasKeyMade = false;
    };
    // Whether a new repository is made when there is nothing at the place.
    enum class Making {
        Never,
        UnlessDiskIsAway, // an empty mount point is where another repository belongs
        Always
    };
    // Blocks while the remote file system of the repository does not answer, because a restic started now
    // could not be stopped. After `longestSilence` the outcome is Unreachable.
    [[nodiscard]] ResticOutcome waitForAnswer(const StopSignal& stop) const;
    // Without a password file a new repository gets a new key. A repository that is there already keeps its
    // own, and the outcome then is that the password is wrong.
    [[nodiscard]] Opening open(Making making, const StopSignal& stop) const;

    struct Listing {
        ResticOutcome outcome;
        std::vector<Snapshot> snapshots; // this computer's, the first made first
        // Why some are missing, in restic's words: theirs could not be read. Empty: these are all.
        std::string unread;
    };
    [[nodiscard]] Listing snapshots(const StopSignal& stop) const;

    struct Contents {
        ResticOutcome outcome;
        Snapshot snapshot; // `isPartial` is not told
        // Each folder before what is in it. Nothing of what is neither file, nor folder nor link.
        std::vector<SnapshotItem> items;
    };
    // All that the snapshot holds.
    [[nodiscard]] Contents list(const std::string& snapshotId, const StopSignal& stop) const;

    // Gives these snapshots one more tag, by which their ids change.
    [[nodiscard]] ResticOutcome addTag(std::string_view tag, const std::vector<std::string>& ids,
                                       const StopSignal& stop) const;

    // Forgets these snapshots and no others.
    [[nodiscard]] ResticOutcome forget(const std::vector<std::string>& ids, const StopSignal& stop) const;
    // Removes what no snapshot holds any more, which may take hours, in which nobody else can be at work in
    // the repository. It may be stopped at any time.
    [[nodiscard]] ResticOutcome prune(const StopSignal& stop) const;

    struct Locks {
        ResticOutcome outcome;
        std::string holders; // who holds those that stay, a line each, for people; empty: nobody
    };
    // Removes the locks of this daemon's own dead processes, and those that were not renewed for half an hour
    // since this process first saw them.
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
