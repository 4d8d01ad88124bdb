#pragma once

#include "LocalDaemon/Restic/ResticJson.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace kelvane {

// Tells whose the locks in a repository are. The restic processes that this daemon and those before it have
// started are kept in a file, so that a lock of one that was killed can be removed at once; a lock of anybody
// else is abandoned when its holder has not renewed it for as long as restic itself waits.
//
// Any thread. A failure to write the file is logged: a lock that is left then counts as somebody else's.
class ResticProcesses {
public:
    using SteadyClock = std::chrono::steady_clock;

    // The process namespace in which numbers come again only after all others: the machine's own one. In a
    // container they begin anew, and its name may be another one's too.
    static constexpr std::uint64_t machineNamespace = 0xEFFF'FFFC;

    explicit ResticProcesses(std::string path, std::uint64_t lastingNamespace = machineNamespace);

    // A process of restic that this one has just started and that may lock the repository.
    void noteStarted(std::int32_t pid);
    // `isLockGone`: it exited normally and removed its lock, so that a lock with its number is not its own.
    void noteEnded(std::int32_t pid, bool isLockGone);

    enum class Holder { Living, Own, Abandoned };
    // Own: it was started by this daemon, or one before it, in the lasting namespace, and is dead. Abandoned:
    // it has stood as it is for half an hour in which the machine was awake, and no process of this machine
    // can be its holder. `all`: every lock in the repository. A living process in another process namespace
    // may have the same number and host name as one of ours: two locks that match one process are both left
    // alone.
    [[nodiscard]] Holder holderOf(const RepositoryLock& lock, const std::vector<RepositoryLock>& all,
                                  SteadyClock::time_point now);

private:
    struct Process {
        std::string bootId;
        std::uint64_t pidNamespace = 0;
        std::int32_t pid = 0;
        std::uint64_t startTime = 0; // clock ticks since boot
        std::int64_t started = 0;    // seconds since 1970
        std::int64_t ended = 0;      // likewise; 0: nobody saw it
        std::string hostName;
    };

    [[nodiscard]] static bool isAlive(const Process& process);
    [[nodiscard]] static bool mayHold(const Process& process, const RepositoryLock& lock);
    [[nodiscard]] static std::vector<Process> read(const std::string& path);
    void save();

    const std::string path_;
    const std::uint64_t lastingNamespace_;
    std::mutex mutex_;                                         // guards what follows
    std::vector<Process> processes_;                           // the last started last
    std::map<std::string, SteadyClock::time_point> firstSeen_; // of others' locks, by id
};

[[nodiscard]] std::string machineHostName();
[[nodiscard]] std::uint64_t ownPidNamespace();

} // namespace kelvane
