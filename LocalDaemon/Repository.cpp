#include "LocalDaemon/Repository.h"

#include "LocalDaemon/Configuration.h"
#include "LocalDaemon/ResticJson.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

// restic takes a lock for forgotten after half an hour; some time for clocks that differ.
constexpr std::int64_t ageOfForgottenLock = std::int64_t{20} * 60;

// restic tries for 44 s to read what has gone.
constexpr std::chrono::milliseconds noPatience{0};

// It works through the whole repository without a word.
constexpr std::chrono::hours timeToTidyUp{6};

// restic prints the list of all snapshots as one line, with every path that each was asked to save, and those
// of one snapshot in the first line of its listing. A thousand snapshots of a thousand paths fit.
constexpr std::size_t longestAnswer = std::size_t{1} << 28U;

std::string hostName() {
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size() - 1);
    return name.data();
}

bool isAlive(std::int32_t pid) {
    return pid > 0 && (::kill(pid, 0) == 0 || errno != ESRCH);
}

bool looksForgotten(const RepositoryLock& lock) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count() - lock.time > ageOfForgottenLock;
}

// An answer that is not whole must never pass for one that says "nothing": what is known of the backup would
// be thrown away.
ResticOutcome checked(ResticOutcome outcome, bool isAnswer) {
    if (!outcome.succeeded() || (isAnswer && !outcome.hasLostLine))
        return outcome;
    outcome.trouble = ResticTrouble::Failed;
    outcome.errors.append(outcome.errors.empty() ? "" : "\n")
        .append(outcome.hasLostLine ? "restic's answer is too long." : "restic's answer cannot be read.");
    return outcome;
}

// All lines that it prints, as one text.
struct Printed {
    ResticOutcome outcome;
    std::string text;
};
Printed print(const Restic& restic, const std::vector<std::string>& arguments, const StopSignal& stop,
              std::chrono::milliseconds patienceWithRetries = Restic::Call().patienceWithRetries) {
    Printed printed;
    Restic::Call call;
    call.arguments = arguments;
    call.patienceWithRetries = patienceWithRetries;
    call.longestLine = longestAnswer;
    call.onLine = [&printed](std::string_view line) {
        printed.text.append(line).append("\n");
        return true;
    };
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

} // namespace

Repository::Repository(std::shared_ptr<const Restic> restic, std::uint32_t computerNumber)
    : restic_(std::move(restic)), tag_("kelvane-" + std::to_string(computerNumber)) {}

Repository::Opening Repository::open(bool mayMake, const StopSignal& stop) const {
    Printed config = print(*restic_, {"cat", "config", "--no-lock"}, stop);
    bool wasMade = false;
    if (mayMake && config.outcome.trouble == ResticTrouble::NoRepository) {
        if (const ResticOutcome made = make(stop); !made.succeeded())
            return {made, {}, false};
        wasMade = true;
        config = print(*restic_, {"cat", "config", "--no-lock"}, stop);
    }
    const std::string id = textEntry(config.text, "id");
    return {checked(config.outcome, !id.empty()), id, wasMade};
}

// restic writes the key before what only that opens: a repository whose making is cut off opens for nobody. A
// folder that is not there yet comes whole or not at all.
ResticOutcome Repository::make(const StopSignal& stop) const {
    namespace fs = std::filesystem;
    RepositoryPlace place = restic_->place();
    const std::string folder = localFolderOf(place.location);
    std::error_code error;
    if (folder.empty() || fs::exists(fs::symlink_status(folder, error)))
        return print(*restic_, {"init"}, stop).outcome;
    place.location = folder + ".kelvane-new";
    fs::remove_all(place.location, error);
    ResticOutcome made = print(Restic(place), {"init"}, stop).outcome;
    if (made.succeeded())
        fs::rename(place.location, folder, error);
    return error ? ResticOutcome{ResticTrouble::Failed, false, place.location + ": " + error.message()}
                 : made;
}

Repository::Listing Repository::snapshots(const StopSignal& stop) const {
    const Printed list = print(*restic_, {"snapshots", "--json", "--no-lock", "--tag", tag_}, stop);
    const auto snapshots = snapshotsFrom(list.text, partialTag);
    return {checked(list.outcome, snapshots.has_value()), snapshots.value_or(std::vector<Snapshot>())};
}

Repository::Contents Repository::list(const std::string& snapshotId,
                                      const std::function<void(SnapshotItem&&)>& take,
                                      const StopSignal& stop) const {
    Contents contents;
    Restic::Call call;
    call.arguments = {"ls", "--json", "--no-lock", snapshotId};
    call.longestLine = longestAnswer;
    call.onLine = [&](std::string_view line) {
        if (auto item = itemFrom(line))
            take(std::move(*item));
        else if (const auto snapshot = snapshotFrom(line))
            contents.snapshot = *snapshot;
        return true;
    };
    const ResticOutcome outcome = restic_->run(call, stop);
    contents.outcome = checked(outcome, !contents.snapshot.id.empty());
    return contents;
}

ResticOutcome Repository::forget(std::chrono::days keep, const StopSignal& stop) const {
    const std::string days = formatText("%lldd", static_cast<long long>(keep.count()));
    return print(*restic_,
                 {"forget", "--tag", tag_, "--group-by", "", "--keep-within", days, "--keep-last", "1"}, stop)
        .outcome;
}

ResticOutcome Repository::prune(const StopSignal& stop) const {
    Restic::Call call;
    call.arguments = {"prune"};
    call.patience = timeToTidyUp;
    call.patienceWithRetries = timeToTidyUp;
    call.hasLowerPriority = true;
    return restic_->run(call, stop);
}

ResticOutcome Repository::clearStaleLocks(const StopSignal& stop) const {
    const Printed list = print(*restic_, {"list", "locks", "--no-lock"}, stop);
    if (!list.outcome.succeeded())
        return list.outcome;
    bool isOneOursAndDead = false;
    for (const std::string& id : linesOf(list.text)) {
        const Printed text = print(*restic_, {"cat", "lock", id, "--no-lock"}, stop, noPatience);
        if (const auto trouble = text.outcome.trouble;
            trouble == ResticTrouble::Unreachable || trouble == ResticTrouble::NoNetwork)
            return {}; // most likely it has gone since, as those of the living do: another time it is clear
        const auto lock = lockFrom(text.text);
        if (!lock)
            continue; // restic makes nothing of it either
        const bool isOurs = lock->hostName == hostName();
        isOneOursAndDead = isOneOursAndDead || (isOurs && !isAlive(lock->pid));
        if ((!isOurs || isAlive(lock->pid)) && looksForgotten(*lock))
            return {
                ResticTrouble::Locked, false,
                formatText("A lock of process %d on %@ looks forgotten and is left alone; if nobody is at "
                           "work there, `restic unlock` removes it.",
                           lock->pid, lock->hostName)};
    }
    if (!isOneOursAndDead)
        return {};
    KelvaneSystemLog("The lock that a dead process of this machine has left in the repository is removed.");
    return print(*restic_, {"unlock"}, stop).outcome;
}

} // namespace kelvane
