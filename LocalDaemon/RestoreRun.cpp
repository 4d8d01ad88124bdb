#include "LocalDaemon/RestoreRun.h"

#include "Foundation/Format.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/Repository.h"
#include "LocalDaemon/RestoreStaging.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

// A person waits for the end of what was cancelled; restic removes its lock in much less.
constexpr std::chrono::milliseconds grace(1500);
constexpr std::chrono::hours forEver(24 * 365);
constexpr mode_t ownersFolder = 0700;
constexpr std::size_t mostErrorBytes = std::size_t{16} << 20U;
constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

// With this restic has done all that it could.
constexpr std::string_view doneWithErrors = "Fatal: There were ";

// Taking the staging folder away has changed the folder's times.
void setTime(const std::string& folder, std::int64_t modified) {
    const std::array<timespec, 2> times{
        timespec{0, UTIME_OMIT}, timespec{modified / nanosecondsPerSecond, modified % nanosecondsPerSecond}};
    if (::utimensat(AT_FDCWD, folder.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0)
        KelvaneSystemLog("The time of %@ cannot be set.", folder);
}

void flush(const std::string& folder) {
    if (const FileDescriptor place(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); place)
        ::syncfs(place.get());
}

} // namespace

std::vector<RestoreRun::Failures> RestoreRun::run(const std::vector<RestoreJob>& jobs) {
    failures_.assign(jobs.size(), {});
    for (std::size_t number = 0; number < jobs.size(); ++number)
        addJob(number, jobs[number]);
    const std::string name = std::string(stagingPrefix) + std::to_string(jobs.front().id);
    for (const auto& [folder, pieces] : groups_)
        if (!tools_.stop.isSet())
            runGroup(folder, pieces, name);
    return std::move(failures_);
}

void RestoreRun::addJob(std::size_t number, const RestoreJob& job) {
    const BackupIndex::Item* const item = tools_.index->find(job.source);
    if (!item)
        failures_[number].push_back({job.source, "it is not in the backup"});
    else if (job.version != 0 && job.version != item->version)
        failures_[number].push_back({job.source, "only its newest version can be restored"});
    else if (std::string refusal = tools_.refusal(job.target); !refusal.empty())
        failures_[number].push_back({job.source, std::move(refusal)});
    else
        addPiece({number, item, job.target});
}

void RestoreRun::addPiece(const Piece& piece) {
    const StagingPlace place = stagingPlaceFor(piece.target, piece.item->kind == ItemKind::Folder);
    if (place.kind == StagingPlace::Kind::Ready)
        return groups_[place.folder].push_back(piece);
    if (place.kind == StagingPlace::Kind::Nowhere)
        return fail({piece}, place.reason);
    for (const BackupIndex::Item& child : tools_.index->children(*piece.item))
        addPiece({piece.job, &child, withSeparator(piece.target).append(tools_.index->nameOf(child))});
}

void RestoreRun::runGroup(const std::string& folder, const Pieces& pieces, const std::string& stagingName) {
    FileTotals wanted;
    for (const Piece& piece : pieces) {
        const FileTotals totals = tools_.index->totalsOf(*piece.item);
        wanted.count += totals.count;
        wanted.bytes += totals.bytes;
    }
    const std::uint64_t room = freeSpaceAt(folder);
    if (wanted.bytes > room)
        fail(pieces, formatText("there is no room: %llu bytes are needed and %llu free in %@", wanted.bytes,
                                room, folder));
    else
        fetchAndDeliver(withSeparator(folder) + stagingName, pieces);
    if (tools_.stop.isSet())
        return;
    for (const Piece& piece : pieces)
        if (piece.target == folder && piece.item->snapshot != 0)
            setTime(folder, piece.item->modified);
    filesBefore_ += wanted.count;
    countArrival({});
}

void RestoreRun::fetchAndDeliver(const std::string& staging, const Pieces& pieces) {
    SnapshotPaths plan;
    for (const Piece& piece : pieces)
        addToPlan(plan, *tools_.index, *piece.item);
    RestoreDelivery::Staged staged{staging, {}};
    tools_.journal.stagingMade(staging);
    Fetching fetching = fetch(plan, staged);
    for (auto wait = tools_.waits.begin(); fetching.isPassing && wait != tools_.waits.end();) {
        KelvaneSystemLog("Restoring waits until the backup can be reached: %@",
                         fetching.failure.empty() ? staged.errors.begin()->second : fetching.failure);
        const bool isLastWait = std::next(wait) == tools_.waits.end();
        const bool isToLast = fetching.isLocked && isSomebodyAtWork() && isLastWait;
        if (!waitUnlessStopped(*wait, tools_.stop))
            break;
        if (!isToLast)
            ++wait;
        fetching = fetch(plan, staged);
    }
    if (!fetching.failure.empty())
        fail(pieces, fetching.failure);
    else if (!tools_.stop.isSet())
        deliver(staged, pieces);
    if (removeStaging(staging))
        tools_.journal.stagingGone(staging);
}

bool RestoreRun::isSomebodyAtWork() const {
    constexpr std::uint32_t anyComputer = 0; // locks have no tag
    const Repository repository(tools_.restic, anyComputer);
    const ResticOutcome outcome = repository.clearStaleLocks(tools_.stop);
    if (!outcome.succeeded())
        KelvaneSystemLog("The lock of the backup stands. %@", outcome.errors);
    return outcome.succeeded();
}

void RestoreRun::deliver(const RestoreDelivery::Staged& staged, const Pieces& pieces) {
    flush(staged.folder); // a rename may reach the disk before what it names
    RestoreDelivery delivery(*tools_.index, staged, tools_.stop);
    for (const Piece& piece : pieces) {
        delivery.deliver(*piece.item, piece.target);
        std::ranges::move(delivery.takeFailures(), std::back_inserter(failures_[piece.job]));
    }
}

RestoreRun::Fetching RestoreRun::fetch(const SnapshotPaths& plan, RestoreDelivery::Staged& staged) const {
    if (!removeStaging(staged.folder))
        return {staged.folder + " cannot be made anew"};
    if (::mkdir(staged.folder.c_str(), ownersFolder) != 0)
        return {staged.folder + ": " + std::generic_category().message(errno)};
    std::string errors;
    for (const auto& [number, paths] : plan) {
        const Snapshot* const snapshot = tools_.index->snapshot(number);
        if (!snapshot)
            return {"the snapshot that holds it is not in the backup any more"};
        for (const auto& includes : includeArguments(paths)) {
            std::vector<std::string> arguments{"restore", snapshot->id, "--target",
                                               staged.folder + '/' + std::to_string(number)};
            arguments.insert(arguments.end(), includes.begin(), includes.end());
            Fetching call = callRestic(std::move(arguments), staged.folder, errors);
            if (!call.failure.empty() || tools_.stop.isSet())
                return call;
        }
    }
    const ErrorsByPath before = std::exchange(staged.errors, errorsByPath(*tools_.index, errors));
    return {{}, mayPass(staged.errors, before)};
}

RestoreRun::Fetching RestoreRun::callRestic(std::vector<std::string> arguments, const std::string& staging,
                                            std::string& errors) const {
    Restic::Call call;
    call.arguments = std::move(arguments);
    call.patience = call.patienceWithRetries = forEver; // the watch is the one to lose it
    call.grace = grace;
    call.takesLockIfPossible = true;
    std::string said;
    call.onErrorLine = [&](std::string_view line) {
        if (said.size() < mostErrorBytes)
            said.append(tools_.restic->withoutSecrets(std::string(line))).append("\n");
    };
    const ArrivalWatch watch(
        {staging, *tools_.index, tools_.stop, [this](const Arrival& arrival) { countArrival(arrival); }});
    const ResticOutcome outcome = tools_.restic->run(call, watch.callStop());
    if (outcome.succeeded() || tools_.stop.isSet())
        return {};
    errors += said;
    if (said.find(doneWithErrors) != std::string::npos)
        return {};
    return {restoreFailureFor(outcome), mayPass(outcome), outcome.trouble == ResticTrouble::Locked};
}

void RestoreRun::fail(const Pieces& pieces, const std::string& reason) {
    for (const Piece& piece : pieces)
        failures_[piece.job].push_back({tools_.index->pathOf(*piece.item), reason});
}

void RestoreRun::countArrival(const Arrival& arrival) const {
    Arrival sum = arrival;
    sum.files += filesBefore_;
    tools_.onArrival(sum);
}

} // namespace kelvane
