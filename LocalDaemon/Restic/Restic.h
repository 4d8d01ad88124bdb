#pragma once

#include "LocalDaemon/Restic/RepositoryPlace.h"
#include "Platform/Processes/ChildProcess.h"

#include <memory>
#include <string>
#include <vector>

namespace kelvane {

class ResticProcesses;

// The reason why a call of restic failed, as far as the daemon handles it separately.
enum class ResticTrouble {
    None,
    Stopped,       // Stopped by the daemon.
    NoRepository,  // There is no repository at the location, or the location does not exist.
    DiskAway,      // There is no repository, and the disk that belongs there is not mounted.
    Occupied,      // The folder contains files that are not a complete repository.
    Unreachable,   // The server or the disk does not respond.
    NoNetwork,     // The network is down, or the server's name cannot be resolved.
    WrongPassword, // The password is wrong, or its file cannot be read.
    Locked,        // Another process has locked the repository.
    Failed,        // Any other error.
};

struct ResticOutcome {
    ResticTrouble trouble = ResticTrouble::None;
    bool isIncomplete = false;    // A snapshot was made, but some files could not be read.
    std::string errors = {};      // The last part of restic's error output, without secrets.
    bool hasLostLine = false;     // A line was dropped because it was longer than the call allows.
    bool wasCacheDamaged = false; // The cache was damaged and has been removed.

    [[nodiscard]] bool succeeded() const { return trouble == ResticTrouble::None; }
};

// Returns the reason for the log or an alert; never empty.
[[nodiscard]] std::string reasonOf(const ResticOutcome& outcome);

// Runs restic. Secrets are passed in its environment and in files, never as arguments. Any thread, also
// several at once; a call blocks its thread until restic has exited.
class Restic {
public:
    // Each process that may lock the repository is recorded in `processes`.
    explicit Restic(RepositoryPlace place, std::shared_ptr<ResticProcesses> processes = nullptr);

    struct Call {
        std::vector<std::string> arguments;
        std::string input;
        std::function<bool(std::string_view)> onLine = [](std::string_view) { return true; };
        std::function<void(std::string_view)> onErrorLine = [](std::string_view) {};
        // Discards everything passed to `onLine` so far, since the call is repeated. Without this
        // function a call is repeated only if it has printed nothing, or is `backup` or `restore`.
        std::function<void()> onRepeat = {};
        bool hasBinaryOutput = false;                    // Output is passed to `onLine` as it arrives.
        std::size_t longestLine = std::size_t{1} << 20U; // In bytes; a longer line is dropped.
        // Stops a call that makes no progress for this long. restic itself retries an unreachable
        // location for a quarter of an hour.
        std::chrono::milliseconds stallTimeout = std::chrono::minutes(2);
        // The same, counted from the first retry that restic reports since the last progress; the earlier
        // of the two applies. Not used with `takesLockIfPossible`.
        std::chrono::milliseconds stallTimeoutInRetries = std::chrono::minutes(2);
        std::chrono::milliseconds grace = std::chrono::seconds(10); // The time to exit after it was stopped.
        // Called on the calling thread while restic runs, each time after this interval. Returns false
        // to stop it.
        std::function<bool()> onTick = [] { return true; };
        std::chrono::milliseconds tickInterval = std::chrono::seconds(5);
        bool hasLowerPriority = false;
        // The lock protects against others that remove data. Where no lock can be made, on a full or
        // read-only disk, the call runs without one: data is rarely removed there, and a restore that
        // misses data fails and reports it.
        bool takesLockIfPossible = false;
        // As in ChildCommand. restic sets extended attributes after the mode, and does not report those
        // that a read-only mode prevented.
        bool ignoresReadOnlyModes = false;
    };
    [[nodiscard]] ResticOutcome run(const Call& call, const StopSignal& stop) const;

    // restic fetches the cache's contents again when it needs them.
    void removeCache() const;

    [[nodiscard]] const RepositoryPlace& place() const { return place_; }
    // Null when processes are not recorded.
    [[nodiscard]] ResticProcesses* processes() const { return processes_.get(); }
    // Removes the user name and password that the location may contain, for the log.
    [[nodiscard]] std::string withoutSecrets(std::string text) const;

private:
    [[nodiscard]] bool mayBeCacheDamage(const Call& call, const ChildOutcome& child, ResticTrouble trouble,
                                        bool hasAnswered) const;
    [[nodiscard]] ChildOutcome runOnce(const Call& call, bool takesLock, const StopSignal& stop) const;

    const RepositoryPlace place_;
    const std::shared_ptr<ResticProcesses> processes_;
    std::vector<std::string> environment_;
};

// Classifies restic's error output by its own messages; names of files in it are ignored. Returns Failed
// for an unknown message.
[[nodiscard]] ResticTrouble troubleSaidIn(std::string_view errors);
// Returns the line that says why restic exited, without its prefix. Empty when it printed nothing.
[[nodiscard]] std::string lastWordIn(std::string_view errors);

// Returns whether restic reports that the location refuses its lock, which it then retries for a while.
[[nodiscard]] bool tellsOfRefusedLock(std::string_view errorLine);

// Returns whether restic skipped a snapshot that it could not load. It may have exited with 0 all the
// same.
[[nodiscard]] bool tellsOfUnreadSnapshot(std::string_view errors);

// Returns whether restic reports that it retries a failed operation.
[[nodiscard]] bool tellsOfRetry(std::string_view errorLine);

// A remote file system that has not responded for this long counts as unreachable.
inline constexpr std::chrono::seconds longestSilence(30);
// Returns the message for a folder whose remote file system has not responded for `longest`. Empty when
// it has responded, or when the folder is on a local disk.
[[nodiscard]] std::string silenceAround(const std::string& folder, std::chrono::milliseconds longest);

// Returns the path as a pattern for `--include` or `--exclude` that matches it literally.
[[nodiscard]] std::string escapedForPattern(std::string_view path);

} // namespace kelvane
