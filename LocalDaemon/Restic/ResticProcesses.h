#pragma once

#include "LocalDaemon/Restic/ResticJson.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace kelvane {

// Determines who holds the locks in a repository. The restic processes started by this daemon and by
// earlier ones are recorded in a file, so that the lock of a killed one can be removed at once. The lock
// of another program is abandoned when its holder has not renewed it for as long as restic itself waits.
//
// Any thread. A failure to write the file is logged; a lock that is then left behind counts as held by
// another program.
class ResticProcesses {
public:
    using SteadyClock = std::chrono::steady_clock;

    // The initial PID namespace, in which a PID is reused only after all others. A container restarts
    // from low PIDs, and its host name may be used by another container.
    static constexpr std::uint64_t machineNamespace = 0xEFFF'FFFC;

    explicit ResticProcesses(std::string path, std::uint64_t lastingNamespace = machineNamespace);

    // Records a restic process that was just started and may lock the repository.
    void noteStarted(std::int32_t pid);
    // `isLockGone`: the process exited normally and removed its lock, so that a lock with its PID
    // belongs to another process.
    void noteEnded(std::int32_t pid, bool isLockGone);

    enum class Holder { Living, Own, Abandoned };
    // Returns Own when the holder was started by this daemon, or an earlier one, in the initial PID
    // namespace, and is dead; Abandoned when the lock was not renewed for half an hour during which the
    // machine was awake, and no process of this machine can be its holder. `all` has every lock in the
    // repository. A running process in another PID namespace may have the same PID and host name as one
    // of this daemon's: two locks that match one process are both kept.
    [[nodiscard]] Holder holderOf(const RepositoryLock& lock, const std::vector<RepositoryLock>& all,
                                  SteadyClock::time_point now);

private:
    struct Process {
        std::string bootId;
        std::uint64_t pidNamespace = 0;
        std::int32_t pid = 0;
        std::uint64_t startTime = 0; // clock ticks since boot
        std::int64_t started = 0;    // seconds since 1970
        std::int64_t ended = 0;      // Seconds since 1970; 0 when nobody saw it end.
        std::string hostName;
    };

    [[nodiscard]] static bool isAlive(const Process& process);
    [[nodiscard]] static bool mayHold(const Process& process, const RepositoryLock& lock);
    [[nodiscard]] static std::vector<Process> read(const std::string& path);
    void save();

    const std::string path_;
    const std::uint64_t lastingNamespace_;
    std::mutex mutex_;                                         // Guards the members below.
    std::vector<Process> processes_;                           // In the order of their start.
    std::map<std::string, SteadyClock::time_point> firstSeen_; // By the id of the other program's lock.
};

[[nodiscard]] std::string machineHostName();
[[nodiscard]] std::uint64_t ownPidNamespace();

} // namespace kelvane
