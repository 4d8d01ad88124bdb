#pragma once

#include "LocalDaemon/Restic/RepositoryPlace.h"
#include "Platform/Processes/ChildProcess.h"

#include <memory>
#include <string>
#include <vector>

namespace kelvane {

class ResticProcesses;

// Why a call of restic came to nothing, as far as the daemon has something to do about it.
enum class ResticTrouble {
    None,
    Stopped,       // by us
    NoRepository,  // there is nothing at the place, or the place itself is not there
    DiskAway,      // there is nothing, and a disk that belongs there is not mounted
    Occupied,      // the folder holds something that is no whole repository
    Unreachable,   // nobody answers
    NoNetwork,     // not even the way there
    WrongPassword, // or the password file cannot be read
    Locked,        // somebody else is at work in it
    Failed,        // anything else
};

struct ResticOutcome {
    ResticTrouble trouble = ResticTrouble::None;
    bool isIncomplete = false;    // a snapshot was made, but some files could not be read
    std::string errors = {};      // the end of what restic said, in which no secret stands
    bool hasLostLine = false;     // it printed one that was longer than the call takes
    bool wasCacheDamaged = false; // and has been removed

    [[nodiscard]] bool succeeded() const { return trouble == ResticTrouble::None; }
};

// For whoever reads the log or the alert; never empty.
[[nodiscard]] std::string reasonOf(const ResticOutcome& outcome);

// restic as a program. Secrets go through its environment and files, never through its arguments. Any thread,
// also several at once; a call blocks its thread until restic has ended.
class Restic {
public:
    // `processes` is told of each process that may lock the repository.
    explicit Restic(RepositoryPlace place, std::shared_ptr<ResticProcesses> processes = nullptr);

    struct Call {
        std::vector<std::string> arguments;
        std::string input;
        std::function<bool(std::string_view)> onLine = [](std::string_view) { return true; };
        std::function<void(std::string_view)> onErrorLine = [](std::string_view) {};
        // Forgets what `onLine` has had, since all of it comes once more. Without it a call is repeated only
        // as long as there was nothing.
        std::function<void()> onRepeat = {};
        bool hasBinaryOutput = false;                    // handed to `onLine` as it comes
        std::size_t longestLine = std::size_t{1} << 20U; // bytes; a longer one is left out
        // restic tries an unreachable place again and again for a quarter of an hour; nobody waits that long.
        std::chrono::milliseconds patience = std::chrono::minutes(2);
        // The same from when it has said that it tries something again, if that is sooner.
        std::chrono::milliseconds patienceWithRetries = std::chrono::minutes(2);
        std::chrono::milliseconds grace = std::chrono::seconds(10); // that it has to end when it is stopped
        // Called on the calling thread while restic runs, each time after this interval. False: it is
        // stopped.
        std::function<bool()> onTick = [] { return true; };
        std::chrono::milliseconds tickInterval = std::chrono::seconds(5);
        bool hasLowerPriority = false;
        // A lock is for what others may remove meanwhile. Where none can be made, on a disk that is full or
        // must not be written to, the call is made without one: little is removed there, and a restore that
        // meets it fails and says so.
        bool takesLockIfPossible = false;
        // As in ChildCommand: restic sets extended attributes after the mode, and says nothing of those that
        // a mode has kept it from.
        bool ignoresReadOnlyModes = false;
    };
    [[nodiscard]] ResticOutcome run(const Call& call, const StopSignal& stop) const;

    // What is in it, restic fetches again.
    void removeCache() const;

    [[nodiscard]] const RepositoryPlace& place() const { return place_; }
    [[nodiscard]] ResticProcesses* processes() const { return processes_.get(); } // may be null
    // For the log: the name and password that may stand in the location are left out.
    [[nodiscard]] std::string withoutSecrets(std::string text) const;

private:
    [[nodiscard]] bool mayBeCacheDamage(const Call& call, const ChildOutcome& child, ResticTrouble trouble,
                                        bool hasAnswered) const;
    [[nodiscard]] ChildOutcome runOnce(const Call& call, bool takesLock, const StopSignal& stop) const;

    const RepositoryPlace place_;
    const std::shared_ptr<ResticProcesses> processes_;
    std::vector<std::string> environment_;
};

// Reads what restic has said on standard error: its own words, not the names of files of which it may tell.
[[nodiscard]] ResticTrouble troubleSaidIn(std::string_view errors); // Failed when it is none that is known
// The line that says why it ended, without what leads to it. Empty when it has said nothing.
[[nodiscard]] std::string lastWordIn(std::string_view errors);

// A line of its errors that says that the place does not take its lock, which it will try for a while.
[[nodiscard]] bool tellsOfRefusedLock(std::string_view errorLine);

// Whether restic skipped a snapshot that it could not load. It may have exited with 0 all the same.
[[nodiscard]] bool tellsOfUnreadSnapshot(std::string_view errors);

// A line of its errors that says that it could not get something through and tries that again.
[[nodiscard]] bool tellsOfRetry(std::string_view errorLine);

// A remote file system that has not answered for this long counts as unreachable.
inline constexpr std::chrono::seconds longestSilence(30);
// The message for a folder whose remote file system has not answered for `longest`. Empty when it has
// answered, or when the folder is on a local disk.
[[nodiscard]] std::string silenceAround(const std::string& folder, std::chrono::milliseconds longest);

// A name as restic's patterns (`--include`, `--exclude`) take it literally.
[[nodiscard]] std::string escapedForPattern(std::string_view path);

} // namespace kelvane
