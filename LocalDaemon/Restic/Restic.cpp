#include "LocalDaemon/Restic/Restic.h"

#include "LocalDaemon/Restic/ResticProcesses.h"
#include "Platform/Files/MountTable.h"
#include "Support/Logging.h"

#include <algorithm>
#include <filesystem>
#include <span>
#include <sstream>
#include <system_error>

namespace kelvane {
namespace {

constexpr std::string_view noLock = "--no-lock";
constexpr std::string_view noCache = "--no-cache";
constexpr int someFilesUnread = 3;
constexpr std::string_view statusLinesPerSecond = "2";
// In MiB; the smallest size that restic accepts (default: 16). An upload counts as done only once a
// whole pack has arrived, and is repeated when the connection is lost.
constexpr std::string_view packSize = "4";

constexpr std::chrono::milliseconds blockageCheckInterval(5000);

constexpr std::string_view fatalMark = "Fatal: ";
constexpr std::string_view interruptMark = "signal interrupt received";
constexpr std::string_view lockMark = "repository is already locked";

struct KnownText {
    std::string_view text;
    ResticTrouble trouble;
};
// The order matters: without a network restic also asks whether there is a repository.
constexpr KnownText knownTexts[] = {
    {"wrong password or no key found", ResticTrouble::WrongPassword},
    {"Resolving password failed", ResticTrouble::WrongPassword},
    {"an empty password is not a password", ResticTrouble::WrongPassword},
    {lockMark, ResticTrouble::Locked},
    {"no such host", ResticTrouble::NoNetwork},
    {"network is unreachable", ResticTrouble::NoNetwork},
    {"no route to host", ResticTrouble::NoNetwork},
    {"Temporary failure in name resolution", ResticTrouble::NoNetwork},
    {"connection refused", ResticTrouble::Unreachable},
    {"connection reset", ResticTrouble::Unreachable},
    {"broken pipe", ResticTrouble::Unreachable},
    {" timeout", ResticTrouble::Unreachable},
    {"timed out", ResticTrouble::Unreachable},
    {"deadline exceeded", ResticTrouble::Unreachable},
    {"input/output error", ResticTrouble::Unreachable}, // A disk that was unplugged, or is failing.
    {"no such device", ResticTrouble::Unreachable},
    {"stale NFS file handle", ResticTrouble::Unreachable},
    {"transport endpoint is not connected", ResticTrouble::Unreachable},
    {"unexpected HTTP response (5", ResticTrouble::Unreachable},
    {"unexpected EOF", ResticTrouble::Unreachable},
    {"Is there a repository at the following location?", ResticTrouble::NoRepository},
};

// The first occurs in messages about retries, the second in an error that restic does not retry.
constexpr std::string_view lockMarks[] = {"Save(<lock/", "/locks/"};
constexpr std::string_view refusals[] = {"permission denied",
                                         "Permission denied",
                                         "operation not permitted",
                                         "read-only file system",
                                         "no space left on device",
                                         "disk quota exceeded",
                                         "Access Denied",
                                         "AccessDenied",
                                         "Forbidden"};

constexpr std::string_view damageMarks[] = {"invalid data returned", "ciphertext verification failed",
                                            "hash does not match"};
constexpr std::string_view unreadMarks[] = {"could not load snapshot", "Ignoring "};

// The beginnings of lines that contain the name of a user's file, which may be any text.
constexpr std::string_view beginningsWithNames[] = {"ignoring error for ", "error: ", "{"};

std::string_view takeLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

bool namesAFile(std::string_view line) {
    return std::ranges::any_of(beginningsWithNames,
                               [&](std::string_view beginning) { return line.starts_with(beginning); });
}

bool tellsOfRefusedLocks(std::string_view errors) {
    while (!errors.empty())
        if (tellsOfRefusedLock(takeLine(errors)))
            return true;
    return false;
}

bool tellsOfInterrupt(std::string_view errors) {
    while (!errors.empty())
        if (const std::string_view line = takeLine(errors);
            !namesAFile(line) && line.find(interruptMark) != std::string_view::npos)
            return true;
    return false;
}

ResticTrouble troubleOf(const ChildOutcome& child, bool isStopped) {
    switch (child.end) {
    case ChildOutcome::End::Stopped: return ResticTrouble::Stopped;
    case ChildOutcome::End::Exited: break;
    case ChildOutcome::End::Stuck: {
        const ResticTrouble said = troubleSaidIn(child.errors);
        return said == ResticTrouble::NoNetwork ? said : ResticTrouble::Unreachable;
    }
    case ChildOutcome::End::Crashed:
    case ChildOutcome::End::NotStarted: return ResticTrouble::Failed;
    }
    // An operation that is interrupted may exit as if it were complete.
    if (child.status == 0 && tellsOfInterrupt(child.errors))
        return isStopped ? ResticTrouble::Stopped : ResticTrouble::Failed;
    if (child.status == 0 || child.status == someFilesUnread)
        return ResticTrouble::None;
    return troubleSaidIn(child.errors);
}

bool holdsOneOf(std::string_view text, std::span<const std::string_view> marks) {
    return std::ranges::any_of(
        marks, [text](std::string_view mark) { return text.find(mark) != std::string_view::npos; });
}

// Returns the reason why a restic with a repository in this folder is blocked in a way that SIGINT
// cannot end; empty when it is not blocked.
std::string blockageOf(pid_t restic, const std::string& folder) {
    if (std::string silence = silenceAround(folder, longestSilence); !silence.empty())
        return silence;
    // restic skips pipes, but opens one that has just replaced a file, and would block for ever.
    return isOpeningPipe(restic)
               ? "restic is blocked: it is opening a named pipe that has just replaced a file."
               : "";
}

} // namespace

ResticTrouble troubleSaidIn(std::string_view errors) {
    std::string own;
    while (!errors.empty())
        if (const std::string_view line = takeLine(errors); !namesAFile(line))
            own.append(line).append("\n");
    const auto* const known = std::ranges::find_if(
        knownTexts, [&](const KnownText& each) { return own.find(each.text) != std::string::npos; });
    return known == std::end(knownTexts) ? ResticTrouble::Failed : known->trouble;
}

// Finds "Fatal: " and its reason, followed by lines of advice; otherwise the reason before a stack
// trace, whose lines come in pairs of which the second is indented.
std::string lastWordIn(std::string_view errors) {
    std::string_view last;
    std::string_view before;
    while (!errors.empty()) {
        const std::string_view line = takeLine(errors);
        if (const std::size_t fatal = line.find(fatalMark);
            fatal != std::string_view::npos && !namesAFile(line))
            return std::string(line.substr(fatal + fatalMark.size()));
        if (line.find(lockMark) != std::string_view::npos)
            return std::string(line);
        if (line.starts_with('\t'))
            last = before;
        else if (!line.empty())
            before = std::exchange(last, line);
    }
    return std::string(last);
}

// restic reports unreadable files as lines of JSON; these have an alert of their own.
std::string reasonOf(const ResticOutcome& outcome) {
    std::string reason;
    std::istringstream lines(outcome.errors);
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with('{'))
            reason.append(reason.empty() ? "" : "\n").append(line);
    return reason.empty() ? "restic exited without a message; it may have been killed." : reason;
}

Restic::Restic(RepositoryPlace place, std::shared_ptr<ResticProcesses> processes)
    : place_(std::move(place)), processes_(std::move(processes)) {
    // restic writes times with their offset from UTC and drops the seconds of the offset.
    environment_ = {"TZ=UTC",
                    "RESTIC_REPOSITORY=" + place_.location,
                    "RESTIC_PASSWORD_FILE=" + place_.passwordFile,
                    "RESTIC_CACHE_DIR=" + place_.cacheFolder,
                    "RESTIC_PROGRESS_FPS=" + std::string(statusLinesPerSecond),
                    "LC_ALL=C"};
    for (const auto& [name, value] : place_.environment)
        environment_.push_back(name + '=' + value);
    if (!place_.environment.contains("RESTIC_PACK_SIZE"))
        environment_.push_back("RESTIC_PACK_SIZE=" + std::string(packSize));
}

ResticOutcome Restic::run(const Call& call, const StopSignal& stop) const {
    bool hasAnswered = false;
    bool isStoppedByTick = false;
    Call watched = call;
    watched.onLine = [&](std::string_view line) {
        hasAnswered = true;
        return call.onLine(line);
    };
    watched.onTick = [&] {
        isStoppedByTick = isStoppedByTick || !call.onTick();
        return !isStoppedByTick;
    };
    const auto isStopped = [&] { return stop.isSet() || isStoppedByTick; };
    ChildOutcome child = runOnce(watched, true, stop);
    bool wasCacheDamaged = false;
    if (!isStopped() && mayBeCacheDamage(call, child, troubleOf(child, false), hasAnswered)) {
        logWarning("restic %@: %@; trying without the cache", call.arguments.front(),
                   withoutSecrets(lastWordIn(child.errors)));
        if (call.onRepeat)
            call.onRepeat();
        watched.arguments.emplace_back(noCache);
        child = runOnce(watched, true, stop);
        wasCacheDamaged =
            troubleOf(child, isStopped()) == ResticTrouble::None && !tellsOfUnreadSnapshot(child.errors);
        if (wasCacheDamaged)
            removeCache();
    }
    if (call.takesLockIfPossible && !child.succeeded() && !isStopped() && tellsOfRefusedLocks(child.errors)) {
        logNotice("The repository cannot be locked; reading it without a lock.");
        watched.arguments = call.arguments;
        child = runOnce(watched, false, stop);
    }
    const ResticOutcome outcome{.trouble = troubleOf(child, isStopped()),
                                .isIncomplete =
                                    child.end == ChildOutcome::End::Exited && child.status == someFilesUnread,
                                .errors = withoutSecrets(child.errors),
                                .hasLostLine = child.hasLostLine,
                                .wasCacheDamaged = wasCacheDamaged};
    KelvaneCLog("restic %@: exit %d. %@", call.arguments.front(), child.status, outcome.errors);
    return outcome;
}

// A damaged file in the cache, or a folder in its place, has the same effects as damage in the
// repository: restic fails, or continues without a snapshot that it cannot load. A repeated call prints its
// lines once more, so it may be repeated only if the caller discards the first ones or has received none,
// or for `restore` and `backup`, whose callers accept lines twice. `check` uses a cache of its own.
bool Restic::mayBeCacheDamage(const Call& call, const ChildOutcome& child, ResticTrouble trouble,
                              bool hasAnswered) const {
    const std::string& command = call.arguments.front();
    const bool canRepeat =
        command == "restore" || command == "backup" || call.onRepeat || (!hasAnswered && command != "check");
    if (!canRepeat || place_.cacheFolder.empty() || trouble == ResticTrouble::Stopped ||
        std::ranges::find(call.arguments, noCache) != call.arguments.end())
        return false;
    if (trouble == ResticTrouble::None)
        return call.onRepeat && tellsOfUnreadSnapshot(child.errors);
    return child.errors.find(place_.cacheFolder + '/') != std::string::npos ||
           (trouble == ResticTrouble::Failed && holdsOneOf(child.errors, damageMarks));
}

void Restic::removeCache() const {
    std::error_code error;
    std::filesystem::remove_all(place_.cacheFolder, error);
    if (error)
        logWarning("Cannot remove the damaged cache %@: %@", place_.cacheFolder, error.message());
    else
        logWarning("Damaged cache removed: %@", place_.cacheFolder);
}

namespace {

ChildSupervision supervisionOf(const Restic::Call& call) {
    ChildSupervision supervision{.input = call.input,
                                 .onLine = call.onLine,
                                 .onErrorLine = call.onErrorLine,
                                 .hasBinaryOutput = call.hasBinaryOutput,
                                 .longestLine = call.longestLine,
                                 .stallTimeout = call.stallTimeout,
                                 .stallTimeoutInTrouble = call.stallTimeoutInRetries,
                                 .isTrouble = tellsOfRetry,
                                 .gracePeriod = call.grace,
                                 .tickInterval = std::min(call.tickInterval, blockageCheckInterval)};
    if (call.takesLockIfPossible) {
        supervision.isTrouble = tellsOfRefusedLock;
        supervision.stallTimeoutInTrouble = std::chrono::milliseconds(0);
    }
    return supervision;
}

} // namespace

ChildOutcome Restic::runOnce(const Call& call, bool takesLock, const StopSignal& stop) const {
    ChildCommand command{.arguments = {place_.program},
                         .environment = environment_,
                         .withheldVariables = "RESTIC_", // The user's own settings for other repositories.
                         .hasLowerPriority = call.hasLowerPriority,
                         .ignoresReadOnlyModes = call.ignoresReadOnlyModes};
    command.arguments.insert(command.arguments.end(), call.arguments.begin(), call.arguments.end());
    if (!takesLock)
        command.arguments.emplace_back(noLock);
    ChildSupervision supervision = supervisionOf(call);
    auto lastCheck = std::chrono::steady_clock::now();
    supervision.onTick = [&, folder = localFolderOf(place_.location)](pid_t restic) -> ChildTick {
        if (!call.onTick())
            return {.action = ChildTick::Action::Stop};
        const auto now = std::chrono::steady_clock::now();
        if (now - lastCheck < blockageCheckInterval)
            return {};
        lastCheck = now;
        std::string reason = blockageOf(restic, folder);
        return reason.empty() ? ChildTick() : ChildTick{ChildTick::Action::Kill, std::move(reason)};
    };
    pid_t id = 0;
    if (processes_ && std::ranges::find(command.arguments, noLock) == command.arguments.end())
        supervision.onStart = [this, &id](pid_t started) {
            id = started;
            processes_->noteStarted(started);
        };
    ChildOutcome outcome = runChild(std::move(command), supervision, stop);
    if (id != 0)
        processes_->noteEnded(id, outcome.end == ChildOutcome::End::Exited &&
                                      (outcome.status == 0 || outcome.status == someFilesUnread));
    return outcome;
}

std::string Restic::withoutSecrets(std::string text) const {
    return withoutCredentials(place_.location, std::move(text));
}

bool tellsOfRefusedLock(std::string_view errorLine) {
    const auto holds = [errorLine](std::string_view each) {
        return errorLine.find(each) != std::string_view::npos;
    };
    return !namesAFile(errorLine) && std::ranges::any_of(lockMarks, holds) &&
           std::ranges::any_of(refusals, holds);
}

bool tellsOfUnreadSnapshot(std::string_view errors) {
    return holdsOneOf(errors, unreadMarks);
}

bool tellsOfRetry(std::string_view errorLine) {
    return errorLine.find("retrying after") != std::string_view::npos;
}

std::string silenceAround(const std::string& folder, std::chrono::milliseconds longest) {
    const std::string mount = silentMountAround(folder, longest);
    return mount.empty() ? mount : "The file system mounted at " + mount + " does not respond.";
}

std::string escapedForPattern(std::string_view path) {
    std::string escaped;
    for (const char each : path) {
        if (std::string_view("\\*?[]").find(each) != std::string_view::npos)
            escaped += '\\';
        escaped += each;
    }
    return escaped;
}

} // namespace kelvane
