#include "LocalDaemon/Backup/BackupRun.h"

#include "Foundation/CleanPath.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "LocalDaemon/Restic/ResticNames.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <set>
#include <span>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr auto tellInterval = 250ms;
constexpr std::size_t mostPatternArguments = 100;
constexpr std::size_t mostMounts = 1000;
constexpr const char* patternFileName = "/kelvane-patterns";
constexpr std::string_view interruptMark = "signal interrupt received";

std::string listOf(const std::vector<std::string>& targets) {
    std::string list;
    for (const std::string& target : targets)
        list.append(target).push_back('\0');
    return list;
}

// Excludes the contents of these folders; the folders themselves are saved. The number of arguments is
// limited, so patterns that do not fit are written to a file, one per line. Returns the folders for
// which neither is possible.
std::vector<std::string> addPatterns(std::vector<std::string> emptied, const std::string& path,
                                     std::vector<std::string>& arguments) {
    const auto rest = std::partition(emptied.begin(), emptied.end(), [](const std::string& folder) {
        return folder.find('\n') != std::string::npos;
    });
    const std::size_t count = std::min(emptied.size(), mostPatternArguments);
    const std::size_t firstInFile =
        std::max<std::size_t>(count, static_cast<std::size_t>(rest - emptied.begin()));
    const std::span<const std::string> all(emptied);
    for (const std::string& folder : all.first(count))
        arguments.insert(arguments.end(), {"--exclude", withSeparator(escapedForPattern(folder)) + '*'});
    const auto leftOver = all.subspan(count, firstInFile - count);
    std::vector<std::string> others(leftOver.begin(), leftOver.end());
    const auto inFile = all.subspan(firstInFile);
    std::string lines;
    for (const std::string& folder : inFile) {
        for (const char each : withSeparator(escapedForPattern(folder)))
            // An unescaped dollar sign would begin a variable.
            lines += each == '$' ? std::string("$$") : std::string(1, each);
        lines += "*\n";
    }
    if (lines.empty())
        return others;
    const std::string failure = replacePrivateFile(path, lines).reason;
    if (failure.empty()) {
        arguments.insert(arguments.end(), {"--exclude-file", path});
    } else {
        logWarning("Folders in which everything is excluded are not backed up: %@", failure);
        others.insert(others.end(), inFile.begin(), inFile.end());
    }
    return others;
}

std::vector<std::string> argumentsFor(const BackupRun::Wanted& wanted) {
    // With --verbose=2 restic reports each finished file, so counts are exact.
    std::vector<std::string> arguments{"backup",           "--json", "--verbose=2", "--one-file-system",
                                       "--files-from-raw", "-"};
    // Excludes the staging folder of a restore that starts during the backup.
    arguments.insert(arguments.end(), {"--exclude", std::string(stagingPrefix) + '*'});
    for (const std::string& file : wanted.leftOut)
        arguments.insert(arguments.end(), {"--exclude", escapedForPattern(file)});
    // restic would access them and block on one that does not respond.
    for (const std::string& mount :
         std::span(wanted.targets.mounts).first(std::min(wanted.targets.mounts.size(), mostMounts)))
        arguments.insert(arguments.end(), {"--exclude", escapedForPattern(mount)});
    for (const std::string& tag : wanted.tags)
        arguments.insert(arguments.end(), {"--tag", tag});
    // By itself restic looks for a parent with the same list of paths. The list changes with the rules,
    // and without a parent every file would be read again.
    if (wanted.isForced)
        arguments.emplace_back("--force");
    else if (!wanted.parent.empty())
        arguments.insert(arguments.end(), {"--parent", wanted.parent});
    return arguments;
}

// restic reports how much of the file was new to the repository, which may be less than its size.
std::uint64_t sizeOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

// Returns the paths on the disk that restic's path may stand for, or restic's path if there are none.
std::vector<std::string> onDisk(const std::string& path) {
    std::vector<std::string> paths = pathsOnDisk(path);
    return paths.empty() ? std::vector<std::string>{path} : paths;
}

// Of several paths that are equal in restic's JSON, returns those that this process cannot read; all of
// them when it can read them by now.
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
    progress_.emplace(wanted.unchanged.bytes, wanted.pendingBytes);
    tell();
    Restic::Call call;
    call.arguments = argumentsFor(wanted);
    const std::string patternFile = repository_.restic().place().cacheFolder + patternFileName;
    std::vector<std::string> unread = addPatterns(wanted.targets.emptied, patternFile, call.arguments);
    const std::set<std::string> leftOut(unread.begin(), unread.end());
    std::vector<std::string> paths = wanted.targets.paths;
    std::erase_if(paths, [&](const std::string& path) { return leftOut.contains(path); });
    unread.insert(unread.end(), wanted.targets.unread.begin(), wanted.targets.unread.end());
    unread.resize(std::min(unread.size(), mostUnread));
    toldUnread_ = {unread.begin(), unread.end()};
    result_.unread = std::move(unread);
    call.input = listOf(paths);
    call.stallTimeout = wanted.stallTimeout;
    call.stallTimeoutInRetries = wanted.stallTimeoutInRetries;
    call.hasLowerPriority = wanted.hasLowerPriority;
    call.onLine = [this](std::string_view line) { return takeLine(line); };
    call.onErrorLine = [this](std::string_view line) { takeErrorLine(line); };
    result_.outcome = repository_.restic().run(call, stop);
    ::unlink(patternFile.c_str());
    if (result_.outcome.succeeded() && wasCacheDamaged(wanted.parent, stop))
        result_.outcome = {.trouble = ResticTrouble::Failed,
                           .isIncomplete = true,
                           .errors = "restic's cache was damaged, and has been removed.",
                           .wasCacheDamaged = true};
    activity_.currentFile.clear();
    activity_.bytesPerSecond.reset();
    activity_.secondsLeft.reset();
    state_.setActivity(activity_);
    return result_;
}

// When restic cannot read a folder of the parent snapshot, it omits the folder without giving a reason.
// Listing that snapshot shows whether restic's cache is damaged, which is then removed.
bool BackupRun::wasCacheDamaged(const std::string& parent, const StopSignal& stop) const {
    return hasUnreasonedError_ && !parent.empty() && repository_.list(parent, stop).outcome.wasCacheDamaged;
}

bool BackupRun::takeLine(std::string_view text) {
    if (text.find("\"action\":\"unchanged\"") != std::string_view::npos) { // Most lines of most backups.
        progress_->noteUnchangedFile();
        return true;
    }
    const BackupLine line = backupLineFrom(text);
    switch (line.kind) {
    case BackupLine::Kind::Item:
        if (line.isFile && line.isChanged) {
            ++filesSaved_;
            progress_->noteSavedFile(sizeOf(line.path));
        }
        return true;
    case BackupLine::Kind::Status: return takeStatus(line.filesDone, line.bytesDone, line.path);
    case BackupLine::Kind::Summary: result_.snapshotId = line.snapshotId; return true;
    case BackupLine::Kind::Error: takeUnread(line); return true;
    case BackupLine::Kind::Other: return false;
    }
    return false;
}

// restic prints a status twice a second, with or without progress.
bool BackupRun::takeStatus(std::uint64_t files, std::uint64_t bytes, const std::string& path) {
    const bool hasGotOn = files != filesDone_ || bytes != bytesDone_;
    filesDone_ = files;
    bytesDone_ = bytes;
    progress_->noteStatus(bytes, std::chrono::steady_clock::now());
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
        return; // Not logged: this is how the daemon stops restic.
    const bool isRetry = tellsOfRetry(text);
    // restic repeats a retry many times; only the first one is logged.
    if (!isRetry || activity_.trouble != ServiceState::NoServer)
        logWarning("restic: %@", repository_.restic().withoutSecrets(std::string(text)));
    if (!isRetry)
        return;
    activity_.trouble = ServiceState::NoServer;
    tell();
}

// A file that is deleted during the backup is no error: there is nothing left to read.
void BackupRun::takeUnread(const BackupLine& error) {
    if (error.path.empty())
        return;
    if (error.isDeleted) {
        if (result_.gone.size() < mostUnread)
            result_.gone.push_back(error.path);
        return;
    }
    hasUnreasonedError_ = hasUnreasonedError_ || error.hasNoReason;
    for (const std::string& path : unreadOnDisk(error.path))
        // restic may report a file twice.
        if (result_.unread.size() < mostUnread && toldUnread_.insert(path).second)
            result_.unread.push_back(path);
}

void BackupRun::tell() {
    activity_.done = {filesSaved_, progress_->bytesSaved()};
    activity_.bytesPerSecond = progress_->bytesPerSecond();
    activity_.secondsLeft = progress_->secondsLeft();
    lastTold_ = std::chrono::steady_clock::now();
    state_.setActivity(activity_);
}

} // namespace kelvane
