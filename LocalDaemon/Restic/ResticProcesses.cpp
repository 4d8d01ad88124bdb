#include "LocalDaemon/Restic/ResticProcesses.h"

#include "Foundation/CleanPath.h"
#include "Platform/FileContents.h"
#include "Platform/MachineClock.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::size_t largestFile = std::size_t{1} << 20U;
constexpr std::size_t mostKept = 200;     // Processes kept in the file.
constexpr std::size_t mostSeen = 1000;    // Locks of other programs that are remembered.
constexpr std::int64_t roundingError = 2; // In seconds, since times are kept in whole seconds.
// restic renews its lock every five minutes, and considers a lock abandoned after thirty.
constexpr std::chrono::minutes longestUnrenewed{30};
// A process's start is given in time since boot, which does not follow a clock correction at once.
constexpr std::int64_t startError = 60; // seconds

// Returns clock ticks since boot, 0 when there is no such process.
std::uint64_t startTimeOf(std::int32_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::size_t behindName = text.rfind(')'); // The name may contain any character.
    if (behindName == std::string::npos)
        return 0;
    std::istringstream fields(text.substr(behindName + 1));
    constexpr int fieldsBetween = 19;
    std::string skipped;
    for (int field = 0; field < fieldsBetween; ++field)
        fields >> skipped;
    std::uint64_t start = 0;
    fields >> start;
    return start;
}

bool mayStillHold(const RepositoryLock& lock, const ClockReading& now) {
    if (lock.pid <= 0 || (::kill(lock.pid, 0) != 0 && errno == ESRCH))
        return false;
    const auto start = static_cast<std::int64_t>(startTimeOf(lock.pid)) / ::sysconf(_SC_CLK_TCK);
    // A later start means that the PID was reused.
    return now.wall - (now.sinceBoot - start) <= lock.time + startError;
}

} // namespace

std::string machineHostName() {
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size() - 1);
    return name.data();
}

std::uint64_t ownPidNamespace() {
    struct stat status {};
    return ::stat("/proc/self/ns/pid", &status) == 0 ? status.st_ino : 0;
}

ResticProcesses::ResticProcesses(std::string path, std::uint64_t lastingNamespace)
    : path_(std::move(path)), lastingNamespace_(lastingNamespace), processes_(read(path_)) {
    const std::int64_t now = readMachineClock().wall;
    for (Process& each : processes_)
        if (each.ended == 0 && !isAlive(each))
            each.ended = now;
}

void ResticProcesses::noteStarted(std::int32_t pid) {
    const ClockReading now = readMachineClock();
    const std::scoped_lock guard(mutex_);
    processes_.push_back(
        {now.bootId, ownPidNamespace(), pid, startTimeOf(pid), now.wall, 0, machineHostName()});
    const auto dead =
        processes_.size() > mostKept ? std::ranges::find_if_not(processes_, isAlive) : processes_.end();
    if (dead != processes_.end())
        processes_.erase(dead);
    save();
}

// The end of a process that may have left its lock is saved with the next start. If the daemon ends
// before that, the next daemon finds the process dead.
void ResticProcesses::noteEnded(std::int32_t pid, bool isLockGone) {
    const std::int64_t now = readMachineClock().wall;
    const std::scoped_lock guard(mutex_);
    const auto isIt = [pid](const Process& each) { return each.pid == pid && each.ended == 0; };
    if (isLockGone && std::erase_if(processes_, isIt) > 0)
        return save();
    for (Process& each : processes_)
        if (isIt(each))
            each.ended = now;
}

ResticProcesses::Holder ResticProcesses::holderOf(const RepositoryLock& lock,
                                                  const std::vector<RepositoryLock>& all,
                                                  SteadyClock::time_point now) {
    const std::scoped_lock guard(mutex_);
    const ClockReading clock = readMachineClock();
    const bool isOfThisMachine = lock.hostName == machineHostName();
    const auto own =
        std::ranges::find_if(processes_, [&](const Process& each) { return mayHold(each, lock); });
    if (own != processes_.end() && isOfThisMachine) {
        const bool isUnique = own->pidNamespace == lastingNamespace_ &&
                              (own->bootId != clock.bootId || own->pidNamespace == ownPidNamespace());
        const auto ofIt =
            std::ranges::count_if(all, [&](const RepositoryLock& each) { return mayHold(*own, each); });
        // A process that has this PID now and had it when the lock was made may be the holder, since
        // PIDs are reused after a reboot.
        const bool isHeld = isAlive(*own) || mayStillHold(lock, clock);
        if (isUnique && (ofIt <= 1 || isHeld))
            return isHeld ? Holder::Living : Holder::Own;
    }
    if (firstSeen_.size() > mostSeen)
        firstSeen_.clear();
    const auto [seen, isNew] = firstSeen_.emplace(lock.id, now);
    const bool isOld = clock.wall - lock.time > std::chrono::seconds(longestUnrenewed).count();
    const bool isAbandoned = isOld && now - seen->second >= longestUnrenewed;
    return isAbandoned && !(isOfThisMachine && mayStillHold(lock, clock)) ? Holder::Abandoned
                                                                          : Holder::Living;
}

bool ResticProcesses::isAlive(const Process& process) {
    return process.bootId == readBootId() && process.startTime != 0 &&
           startTimeOf(process.pid) == process.startTime;
}

bool ResticProcesses::mayHold(const Process& process, const RepositoryLock& lock) {
    return process.hostName == lock.hostName && process.pid == lock.pid &&
           lock.time >= process.started - roundingError &&
           (process.ended == 0 || lock.time <= process.ended + roundingError);
}

// The file has one process per line.
std::vector<ResticProcesses::Process> ResticProcesses::read(const std::string& path) {
    const FileReading file = readFile(path, largestFile);
    if (!file.succeeded() && file.error != ENOENT && file.error != ENOTDIR)
        logError("The list of restic's processes cannot be read: %@", file.reason);
    std::istringstream lines(std::string(file.bytes.begin(), file.bytes.end()));
    std::vector<Process> processes;
    std::string line;
    while (processes.size() < mostKept && std::getline(lines, line)) {
        Process each;
        std::istringstream fields(line);
        if (fields >> each.bootId >> each.pidNamespace >> each.pid >> each.startTime >> each.started >>
            each.ended >> each.hostName)
            processes.push_back(each);
    }
    return processes;
}

void ResticProcesses::save() {
    std::ostringstream lines;
    for (const Process& each : processes_)
        lines << each.bootId << ' ' << each.pidNamespace << ' ' << each.pid << ' ' << each.startTime << ' '
              << each.started << ' ' << each.ended << ' ' << each.hostName << '\n';
    if (const FileOutcome saved = replacePrivateFile(path_, lines.str()); !saved.succeeded())
        logError("The list of restic's processes cannot be saved: %@", saved.reason);
}

} // namespace kelvane
