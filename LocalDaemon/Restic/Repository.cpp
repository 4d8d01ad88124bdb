#include "LocalDaemon/Restic/Repository.h"

#include "Foundation/Format.h"
#include "LocalDaemon/Restic/AwayDisk.h"
#include "LocalDaemon/Restic/RepositoryMaking.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "LocalDaemon/Restic/ResticNames.h"
#include "LocalDaemon/Restic/ResticProcesses.h"
#include "Platform/Files/MountTable.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kelvane {
namespace {

// Stops restic at its first retry: it retries for 44 s to read a file that was removed.
constexpr std::chrono::milliseconds noStallTimeout{0};

// A prune goes through the whole repository without printing anything.
constexpr std::chrono::hours timeToTidyUp{6};

// restic prints the list of all snapshots as one line, with every path that each was asked to save, and
// the paths of one snapshot in the first line of its listing. A thousand snapshots of a thousand paths
// fit.
constexpr std::size_t longestAnswer = std::size_t{1} << 28U;

constexpr const char* newKeySuffix = ".kelvane-new"; // The same suffix as for an unfinished repository.

constexpr std::size_t mostForgotten = 500; // Snapshots in one call.

// Returns whether `restic unlock` would remove the lock. restic does not consider PID namespaces.
bool resticWouldRemove(const RepositoryLock& lock) {
    constexpr std::int64_t oldest = std::int64_t{30} * 60; // seconds
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count() - lock.time > oldest ||
           (lock.hostName == machineHostName() && ::kill(lock.pid, 0) != 0 && errno == ESRCH);
}

std::string descriptionOf(const RepositoryLock& lock) {
    std::tm local{};
    const std::time_t seconds = lock.time;
    ::localtime_r(&seconds, &local);
    std::array<char, 32> since{};
    std::strftime(since.data(), since.size(), "%Y-%m-%d %H:%M", &local);
    return formatText("Repository is locked by PID %d on host %@ since %s.", lock.pid, lock.hostName,
                      since.data());
}

// Reports an incomplete answer as a failure: taken for an empty one, it would empty the index.
ResticOutcome checked(ResticOutcome outcome, bool isAnswer) {
    if (!outcome.succeeded() || (isAnswer && !outcome.hasLostLine))
        return outcome;
    outcome.trouble = ResticTrouble::Failed;
    outcome.errors.append(outcome.errors.empty() ? "" : "\n")
        .append(outcome.hasLostLine ? "A line of restic's output is too long."
                                    : "restic's output cannot be parsed.");
    return outcome;
}

// Collects all printed lines as one text.
struct Printed {
    ResticOutcome outcome;
    std::string text;
};
Printed print(const Restic& restic, const std::vector<std::string>& arguments, const StopSignal& stop,
              std::chrono::milliseconds stallTimeoutInRetries = Restic::Call().stallTimeoutInRetries) {
    Printed printed;
    Restic::Call call;
    call.arguments = arguments;
    call.stallTimeoutInRetries = stallTimeoutInRetries;
    call.longestLine = longestAnswer;
    call.onLine = [&printed](std::string_view line) {
        printed.text.append(line).append("\n");
        return true;
    };
    call.onRepeat = [&printed] { printed.text.clear(); };
    printed.outcome = checked(restic.run(call, stop), true);
    return printed;
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return lines;
}

// Returns whether no file system can have such a path.
bool isImpossible(std::string_view path) {
    constexpr std::size_t longestName = 65535;
    for (path.remove_prefix(1);; path.remove_prefix(path.find('/') + 1)) {
        const std::string_view name = path.substr(0, path.find('/'));
        if (name.empty() || name == "." || name == ".." || name.size() > longestName)
            return true;
        if (name.size() == path.size())
            return false;
    }
}

void leaveOut(std::vector<SnapshotItem>& items, const std::vector<bool>& isLeftOut) {
    std::size_t kept = 0;
    for (std::size_t at = 0; at < items.size(); ++at) {
        if (isImpossible(items[at].path))
            logWarning("The backup contains a file with an invalid name, which is ignored: %@",
                       items[at].path);
        else if (!isLeftOut[at] && kept++ != at)
            items[kept - 1] = std::move(items[at]);
    }
    items.resize(kept);
}

ResticOutcome make(const Restic& restic, Repository::Making making, const StopSignal& stop) {
    const std::string folder = localFolderOf(restic.place().location);
    const std::string disk =
        folder.empty() || making == Repository::Making::Always ? std::string() : awayMountPointOf(folder);
    return disk.empty() ? makeRepository(restic, stop)
                        : ResticOutcome{.trouble = ResticTrouble::DiskAway,
                                        .errors = "Nothing is mounted at " + disk + "."};
}

} // namespace

Repository::Repository(std::shared_ptr<const Restic> restic, std::uint32_t computerNumber)
    : restic_(std::move(restic)), tag_("kelvane-" + std::to_string(computerNumber)) {}

ResticOutcome Repository::waitForAnswer(const StopSignal& stop) const {
    constexpr std::chrono::milliseconds step(500);
    const std::string folder = localFolderOf(restic_->place().location);
    while (!silentMountAround(folder).empty()) {
        if (std::string silence = silenceAround(folder, longestSilence); !silence.empty())
            return {.trouble = ResticTrouble::Unreachable, .errors = std::move(silence)};
        if (!waitUnlessStopped(step, stop))
            return {.trouble = ResticTrouble::Stopped};
    }
    return {};
}

Repository::Opening Repository::open(Making making, const StopSignal& stop) const {
    const std::string& passwordFile = restic_->place().passwordFile;
    const bool hasKey = passwordFile.empty() || ::access(passwordFile.c_str(), F_OK) == 0 || errno != ENOENT;
    return hasKey ? openWith(*restic_, making, stop) : openWithoutKey(making, stop);
}

Repository::Opening Repository::openWith(const Restic& restic, Making making, const StopSignal& stop) const {
    Printed config = print(restic, {"cat", "config", "--no-lock"}, stop);
    bool wasMade = false;
    if (config.outcome.trouble == ResticTrouble::NoRepository)
        if (const std::string folder = localFolderOf(restic.place().location);
            !folder.empty() && isOccupied(folder))
            config.outcome.trouble = ResticTrouble::Occupied;
    if (making != Making::Never && config.outcome.trouble == ResticTrouble::NoRepository) {
        if (const ResticOutcome made = make(restic, making, stop); !made.succeeded())
            return {.outcome = made, .id = {}};
        wasMade = true;
        config = print(restic, {"cat", "config", "--no-lock"}, stop);
    }
    const std::string id = textEntry(config.text, "id");
    return {.outcome = checked(config.outcome, !id.empty()), .id = id, .wasMade = wasMade};
}

// With a key that opens no repository yet, restic cannot distinguish a repository that has another key
// from a missing one. The key gets its final name once the repository that it opens exists; a daemon
// that is killed in between finds both at its next start.
Repository::Opening Repository::openWithoutKey(Making making, const StopSignal& stop) const {
    RepositoryPlace place = restic_->place();
    const std::string passwordFile = std::exchange(place.passwordFile, place.passwordFile + newKeySuffix);
    bool isNew = false;
    if (const std::string failure = ensurePasswordFile(place.passwordFile, isNew); !failure.empty())
        return {.outcome = {.trouble = ResticTrouble::Failed,
                            .errors = "Cannot create the repository's key: " + failure},
                .id = {}};
    Opening opening = openWith(Restic(place), making, stop);
    std::error_code error;
    if (opening.outcome.succeeded()) {
        std::filesystem::rename(place.passwordFile, passwordFile, error);
        opening.wasKeyMade = !error;
        if (error)
            opening.outcome = {.trouble = ResticTrouble::Failed,
                               .errors = passwordFile + ": " + error.message()};
    } else if (isNew && (opening.outcome.trouble == ResticTrouble::WrongPassword ||
                         opening.outcome.trouble == ResticTrouble::DiskAway ||
                         opening.outcome.trouble == ResticTrouble::Occupied ||
                         opening.outcome.trouble == ResticTrouble::NoRepository)) {
        std::filesystem::remove(place.passwordFile, error); // The key opens no repository.
    }
    return opening;
}

Repository::Listing Repository::snapshots(const StopSignal& stop) const {
    const Printed list = print(*restic_, {"snapshots", "--json", "--no-lock", "--tag", tag_}, stop);
    const auto snapshots = snapshotsFrom(list.text, partialTag);
    return {checked(list.outcome, snapshots.has_value()), snapshots.value_or(std::vector<Snapshot>()),
            tellsOfUnreadSnapshot(list.outcome.errors) ? list.outcome.errors : ""};
}

Repository::Contents Repository::list(const std::string& snapshotId, const StopSignal& stop) const {
    Contents contents;
    std::vector<bool> isLeftOut;
    std::size_t headerLines = 1;
    bool isReadable = true;
    bool hasLostBytes = false;
    Restic::Call call;
    call.arguments = {"ls", "--json", "--no-lock", snapshotId};
    call.longestLine = longestAnswer;
    call.onLine = [&](std::string_view line) {
        if (auto listed = itemFrom(line)) {
            hasLostBytes = hasLostBytes || mayHaveLostBytes(listed->item.path);
            isLeftOut.push_back(!listed->isKept);
            contents.items.push_back(std::move(listed->item));
        } else if (auto snapshot = snapshotFrom(line)) {
            contents.snapshot = std::move(*snapshot);
            headerLines += lineBreaksInPathsOf(line);
        } else {
            isReadable = false;
        }
        return true;
    };
    call.onRepeat = [&] {
        contents = {};
        isLeftOut.clear();
        headerLines = 1;
        isReadable = true;
        hasLostBytes = false;
    };
    const ResticOutcome outcome = restic_->run(call, stop);
    contents.outcome = checked(outcome, isReadable && !contents.snapshot.id.empty());
    if (contents.outcome.succeeded() && hasLostBytes)
        contents.outcome = correctNames(contents.items, snapshotId, headerLines, stop);
    if (contents.outcome.succeeded())
        leaveOut(contents.items, isLeftOut);
    else
        contents.items.clear();
    return contents;
}

ResticOutcome Repository::correctNames(std::vector<SnapshotItem>& items, const std::string& snapshotId,
                                       std::size_t headerLines, const StopSignal& stop) const {
    PlainListing listing(items, headerLines);
    Restic::Call call;
    call.arguments = {"ls", "--no-lock", snapshotId};
    call.longestLine = longestAnswer;
    call.onLine = [&](std::string_view line) {
        listing.take(line);
        return true;
    };
    const ResticOutcome outcome = restic_->run(call, stop);
    return checked(outcome, listing.isWhole());
}

ResticOutcome Repository::addTag(std::string_view tag, const std::vector<std::string>& ids,
                                 const StopSignal& stop) const {
    std::vector<std::string> arguments{"tag", "--add", std::string(tag)};
    arguments.insert(arguments.end(), ids.begin(), ids.end());
    return print(*restic_, arguments, stop).outcome;
}

ResticOutcome Repository::forget(const std::vector<std::string>& ids, const StopSignal& stop) const {
    ResticOutcome outcome;
    for (std::size_t at = 0; at < ids.size() && outcome.succeeded(); at += mostForgotten) {
        std::vector<std::string> arguments{"forget"};
        const auto end = std::min(ids.size(), at + mostForgotten);
        arguments.insert(arguments.end(), ids.begin() + static_cast<std::ptrdiff_t>(at),
                         ids.begin() + static_cast<std::ptrdiff_t>(end));
        outcome = print(*restic_, arguments, stop).outcome;
    }
    return outcome;
}

ResticOutcome Repository::prune(const StopSignal& stop) const {
    Restic::Call call;
    call.arguments = {"prune"};
    call.stallTimeout = timeToTidyUp;
    call.stallTimeoutInRetries = timeToTidyUp;
    call.hasLowerPriority = true;
    return restic_->run(call, stop);
}

Repository::Locks Repository::clearStaleLocks(const StopSignal& stop,
                                              std::chrono::steady_clock::time_point now) const {
    const Printed list = print(*restic_, {"list", "locks", "--no-lock"}, stop);
    if (!list.outcome.succeeded())
        return {list.outcome, {}};
    std::vector<RepositoryLock> all;
    bool areAllKnown = true;
    for (const std::string& id : linesOf(list.text)) {
        const Printed text = print(*restic_, {"cat", "lock", id, "--no-lock"}, stop, noStallTimeout);
        auto lock = lockFrom(text.text);
        // A lock that cannot be read was most likely removed in the meantime by a running process.
        areAllKnown = areAllKnown && lock.has_value();
        if (!lock)
            continue;
        lock->id = id;
        all.push_back(*lock);
    }
    std::vector<RepositoryLock> stale;
    std::vector<RepositoryLock> others;
    for (const RepositoryLock& each : all) {
        using Holder = ResticProcesses::Holder;
        ResticProcesses* const processes = restic_->processes();
        const Holder holder = processes ? processes->holderOf(each, all, now) : Holder::Living;
        (holder == Holder::Living ? others : stale).push_back(each);
    }
    std::string holders;
    for (const RepositoryLock& each : others)
        holders.append(holders.empty() ? "" : "\n").append(descriptionOf(each));
    return {remove(stale, others, areAllKnown, stop), holders};
}

// In a local folder, removes exactly these locks. Elsewhere only restic can remove locks, and it selects
// them by its own rules: it is not called while it might also remove a lock that must stay.
ResticOutcome Repository::remove(const std::vector<RepositoryLock>& locks,
                                 const std::vector<RepositoryLock>& others, bool areAllKnown,
                                 const StopSignal& stop) const {
    if (locks.empty())
        return {};
    for (const RepositoryLock& each : locks)
        logNotice("Removing the stale lock of PID %d on host %@.", each.pid, each.hostName);
    const std::string folder = localFolderOf(restic_->place().location);
    if (folder.empty() && areAllKnown && std::ranges::none_of(others, resticWouldRemove))
        return print(*restic_, {"unlock"}, stop).outcome;
    if (folder.empty())
        return {.trouble = ResticTrouble::Locked,
                .errors = "`restic unlock` might also remove a lock that is in use."};
    for (const RepositoryLock& each : locks)
        if (::unlink((folder + "/locks/" + each.id).c_str()) != 0 && errno != ENOENT)
            return {.trouble = ResticTrouble::Failed,
                    .errors = folder + "/locks/" + each.id + ": " + errorText()};
    return {};
}

} // namespace kelvane
