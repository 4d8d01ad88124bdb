#include "LocalDaemon/BackupRun.h"

#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/ResticJson.h"
#include "LocalDaemon/ResticNames.h"
#include "LocalDaemon/RestoreStaging.h"
#include "Support/Logging.h"

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr auto tellInterval = 250ms;
constexpr std::string_view interruptMark = "signal interrupt received";

std::string listOf(const std::vector<std::string>& targets) {
    std::string list;
    for (const std::string& target : targets)
        list.append(target).push_back('\0');
    return list;
}

std::vector<std::string> argumentsFor(const BackupRun::Wanted& wanted) {
    // The verbose form names each file that is done, so that counts need not be guessed.
    std::vector<std::string> arguments{"backup",           "--json", "--verbose=2", "--one-file-system",
                                       "--files-from-raw", "-"};
    // Of a restore that begins only now.
    arguments.insert(arguments.end(), {"--exclude", std::string(stagingPrefix) + '*'});
    for (const std::string& folder : wanted.targets.emptied)
        arguments.insert(arguments.end(), {"--exclude", withSeparator(escapedForPattern(folder)) + '*'});
    for (const std::string& tag : wanted.tags)
        arguments.insert(arguments.end(), {"--tag", tag});
    // restic would look for one with the same list of paths, which is another one after each change of the
    // rules, and read every file again.
    if (wanted.isForced)
        arguments.emplace_back("--force");
    else if (!wanted.parent.empty())
        arguments.insert(arguments.end(), {"--parent", wanted.parent});
    return arguments;
}

// restic tells how much of it was new to the repository, which may be a part.
std::uint64_t sizeOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

// As restic says it when nothing is there any more.
std::vector<std::string> onDisk(const std::string& path) {
    std::vector<std::string> paths = pathsOnDisk(path);
    return paths.empty() ? std::vector<std::string>{path} : paths;
}

// Of several that look alike to restic those that this process cannot read; all of them when it can read them
// by now.
std::vector<std::string> unreadOnDisk(const std::string& path) {
    std::vector<std::string> paths = onDisk(path);
    const auto isReadable = [](const std::string& each) { return ::access(each.c_str(), R_OK) == 0; };
    if (paths.size() > 1 && !std::ranges::all_of(paths, isReadable))
        std::erase_if(paths, isReadable);
    return paths;
}

} // namespace

BackupRun::BackupRun(DaemonState& state, const Repository& repository)
    : state_(state), repository_(repository), activity_(state.activity()) {}

BackupRun::Result BackupRun::run(const Wanted& wanted, const StopSignal& stop) {
    activity_.isRunning = true;
    activity_.isInitial = wanted.isInitial;
    activity_.done = {};
    troubleBefore_ = activity_.trouble;
    unchanged_ = wanted.unchanged;
    tell();
    Restic::Call call;
    call.arguments = argumentsFor(wanted);
    call.input = listOf(wanted.targets.paths);
    call.patience = wanted.patience;
    call.patienceWithRetries = wanted.patienceWithRetries;
    call.hasLowerPriority = wanted.hasLowerPriority;
    call.onLine = [this](std::string_view line) { return takeLine(line); };
    call.onErrorLine = [this](std::string_view line) { takeErrorLine(line); };
    result_.outcome = repository_.restic().run(call, stop);
    activity_.currentFile.clear();
    tell();
    return result_;
}

bool BackupRun::takeLine(std::string_view text) {
    if (text.find("\"action\":\"unchanged\"") != std::string_view::npos)
        return true; // most lines of most backups
    const BackupLine line = backupLineFrom(text);
    switch (line.kind) {
    case BackupLine::Kind::Item:
        if (line.isFile && line.isChanged)
            saved_ += {1, sizeOf(line.path)};
        return true;
    case BackupLine::Kind::Status: return takeStatus(line.filesDone, line.bytesDone, line.path);
    case BackupLine::Kind::Summary: result_.snapshotId = line.snapshotId; return true;
    case BackupLine::Kind::Error: takeUnread(line); return true;
    case BackupLine::Kind::Other: return false;
    }
    return false;
}

// It comes twice a second, whether anything has been done or not.
bool BackupRun::takeStatus(std::uint64_t files, std::uint64_t bytes, const std::string& path) {
    const bool hasGotOn = files != filesDone_ || bytes != bytesDone_;
    filesDone_ = files;
    bytesDone_ = bytes;
    if (!path.empty())
        activity_.currentFile = onDisk(path).front();
    if (hasGotOn)
        activity_.trouble = troubleBefore_;
    if (std::chrono::steady_clock::now() - lastTold_ >= tellInterval)
        tell();
    return hasGotOn;
}

void BackupRun::takeErrorLine(std::string_view text) {
    const BackupLine line = backupLineFrom(text);
    if (line.kind == BackupLine::Kind::Error && !line.path.empty())
        return takeUnread(line);
    if (text.find(interruptMark) != std::string_view::npos)
        return; // who has interrupted it knows
    const bool isRetry = tellsOfRetry(text);
    // The first of very many alike.
    if (!isRetry || activity_.trouble != ServiceState::NoServer)
        KelvaneSystemLog("restic: %@", repository_.restic().withoutSecrets(std::string(text)));
    if (!isRetry)
        return;
    activity_.trouble = ServiceState::NoServer;
    tell();
}

// A file that is deleted during the backup is no trouble: there is nothing left to read.
void BackupRun::takeUnread(const BackupLine& error) {
    if (error.path.empty() || error.isDeleted)
        return;
    for (const std::string& path : unreadOnDisk(error.path)) {
        const bool isNew =
            std::ranges::find(result_.unread, path) == result_.unread.end(); // it may tell it twice
        if (isNew && result_.unread.size() < mostUnread)
            result_.unread.push_back(path);
    }
}

// Of a large file also the part that is read. restic tells how much it has been through altogether.
void BackupRun::tell() {
    activity_.done = saved_;
    if (bytesDone_ > unchanged_.bytes + saved_.bytes)
        activity_.done.bytes = bytesDone_ - unchanged_.bytes;
    lastTold_ = std::chrono::steady_clock::now();
    state_.setActivity(activity_);
}

} // namespace kelvane
