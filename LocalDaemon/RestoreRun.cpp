#include "LocalDaemon/RestoreRun.h"

#include "Foundation/Format.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/Repository.h"
#include "LocalDaemon/RestoreStaging.h"
#include "LocalDaemon/RestoreStream.h"
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
constexpr std::uint64_t blockSize = 4096; // bytes, about
constexpr std::size_t mostErrorBytes = std::size_t{16} << 20U;

// With this restic has done all that it could.
constexpr std::string_view doneWithErrors = "Fatal: There were ";

// Taking the staging folder away has changed the folder's times.
void setTime(const std::string& folder, FileTime modified) {
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, modified.asTimespec()};
    const FileDescriptor place = openFolder(folder);
    if (!place || ::utimensat(AT_FDCWD, pathOfDescriptor(place.get()).c_str(), times.data(), 0) != 0)
        KelvaneSystemLog("The time of %@ cannot be set.", folder);
}

// Each file takes some room of its own.
std::uint64_t roomFor(const FileTotals& totals) {
    return totals.bytes + totals.count * blockSize;
}

} // namespace

std::vector<RestoreRun::Failures> RestoreRun::run(const std::vector<RestoreJob>& jobs) {
    failures_.assign(jobs.size(), {});
    stagingName_ = std::string(stagingPrefix) + std::to_string(jobs.front().id);
    for (std::size_t number = 0; number < jobs.size(); ++number)
        addJob(number, jobs[number]);
    for (const auto& [folder, pieces] : groups_)
        if (!tools_.stop.isSet())
            runGroup(folder, pieces);
    finishMadeFolders();
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

void RestoreRun::addPiece(const RestorePiece& piece) {
    const StagingPlace place = stagingPlaceFor(piece.target, piece.item->kind == ItemKind::Folder);
    if (place.kind == StagingPlace::Kind::Ready)
        return groups_[place.folder].push_back(piece);
    if (place.kind == StagingPlace::Kind::Nowhere)
        return fail({piece}, place.reason);
    for (const BackupIndex::Item* const child : lastContents(*tools_.index, *piece.item))
        addPiece({piece.job, child, withSeparator(piece.target).append(tools_.index->nameOf(*child))});
}

void RestoreRun::runGroup(const std::string& folder, const RestorePieces& pieces) {
    std::uint64_t wanted = 0;
    for (const RestorePiece& piece : pieces)
        wanted += roomFor(lastTotals(*tools_.index, *piece.item));
    const std::uint64_t room = tools_.freeSpace(folder);
    if (wanted <= room)
        fetchAndDeliver(folder, pieces);
    else
        runPortions(folder, divided(*tools_.index, pieces, room));
    if (tools_.stop.isSet())
        return;
    for (const RestorePiece& piece : pieces)
        if (piece.target == folder && piece.item->snapshot != 0)
            setTime(folder, piece.item->modified);
}

// What replaces something leaves more room for the others.
void RestoreRun::runPortions(const std::string& folder, RestorePortions parts) {
    std::vector<RestorePortion> waiting = std::move(parts.portions);
    for (std::size_t before = waiting.size() + 1; !waiting.empty() && waiting.size() < before;) {
        before = waiting.size();
        for (RestorePortion& portion : std::exchange(waiting, {}))
            if (tools_.stop.isSet())
                return;
            else if (portion.bytes <= tools_.freeSpace(folder))
                fetchAndDeliver(folder, portion.pieces);
            else
                waiting.push_back(std::move(portion));
    }
    for (const RestorePortion& portion : waiting)
        runPortionWithoutRoom(folder, portion);
    std::ranges::reverse(parts.folders); // what is put into a folder changes its times
    if (!parts.folders.empty() && !tools_.stop.isSet())
        fetchAndDeliver(folder, parts.folders);
}

void RestoreRun::runPortionWithoutRoom(const std::string& folder, const RestorePortion& portion) {
    for (const RestorePiece& piece : portion.pieces) {
        const std::uint64_t wanted = roomFor(lastTotals(*tools_.index, *piece.item));
        const std::uint64_t room = tools_.freeSpace(folder);
        if (tools_.stop.isSet())
            return;
        if (wanted <= room)
            fetchAndDeliver(folder, {piece});
        else if (piece.item->kind == ItemKind::File)
            streamAndDeliver(folder, piece);
        else
            fail({piece}, formatText("there is no room: %llu bytes are needed and %llu free in %@", wanted,
                                     room, folder));
    }
}

template <class Work>
void RestoreRun::inStaging(const std::string& folder, const RestorePieces& pieces, Work work) {
    const std::string path = withSeparator(folder) + stagingName_;
    tools_.journal.stagingMade(path);
    {
        const StagingFolder staging(folder, stagingName_);
        if (staging.failure().empty())
            work(staging);
        else
            fail(pieces, staging.failure());
    }
    if (removeStaging(path))
        tools_.journal.stagingGone(path);
    for (const RestorePiece& piece : pieces)
        if (!piece.isFolderAlone)
            filesBefore_ += lastTotals(*tools_.index, *piece.item).count;
    countArrival({});
}

void RestoreRun::fetchAndDeliver(const std::string& folder, const RestorePieces& pieces) {
    RestorePlan plan;
    for (const RestorePiece& piece : pieces)
        addToPlan(plan, *tools_.index, piece);
    inStaging(folder, pieces, [&](const StagingFolder& staging) {
        FileErrors errors;
        const Fetching fetching = fetchWithWaits(plan, staging, errors);
        if (!fetching.failure.empty())
            fail(pieces, fetching.failure);
        else if (!tools_.stop.isSet())
            deliver(staging, errors, pieces);
    });
}

void RestoreRun::streamAndDeliver(const std::string& folder, const RestorePiece& piece) {
    const std::string path = tools_.index->pathOf(*piece.item);
    RestorePlan plan;
    plan[piece.item->snapshot].foldersAlone.emplace_back(folderOf(path));
    inStaging(folder, {piece}, [&](const StagingFolder& staging) {
        FileErrors errors;
        Fetching fetching = fetchWithWaits(plan, staging, errors); // the folders on the way to it
        const Snapshot* const snapshot = tools_.index->snapshot(piece.item->snapshot);
        if (fetching.failure.empty() && snapshot && !tools_.stop.isSet())
            fetching.failure =
                streamFile(*tools_.restic, snapshot->id, {*piece.item, path}, staging, tools_.stop);
        if (!fetching.failure.empty())
            fail({piece}, fetching.failure);
        else if (!tools_.stop.isSet())
            deliver(staging, errors, {piece});
    });
}

RestoreRun::Fetching RestoreRun::fetchWithWaits(const RestorePlan& plan, const StagingFolder& staging,
                                                FileErrors& errors) const {
    Fetching fetching = fetch(plan, staging, errors);
    for (auto wait = tools_.waits.begin(); fetching.isPassing && wait != tools_.waits.end();) {
        const std::string reason = !fetching.failure.empty() ? fetching.failure
                                   : errors.items.empty()    ? errors.below.begin()->second
                                                             : errors.items.begin()->second;
        KelvaneSystemLog("Restoring waits until the backup can be reached: %@", reason);
        tools_.onWait(reason);
        const bool isLastWait = std::next(wait) == tools_.waits.end();
        const bool isToLast = fetching.isLocked && isSomebodyAtWork() && isLastWait;
        if (!waitUnlessStopped(*wait, tools_.stop))
            break;
        if (!isToLast)
            ++wait;
        fetching = fetch(plan, staging, errors);
    }
    tools_.onWait({});
    return fetching;
}

bool RestoreRun::isSomebodyAtWork() const {
    constexpr std::uint32_t anyComputer = 0; // locks have no tag
    const Repository repository(tools_.restic, anyComputer);
    const ResticOutcome outcome = repository.clearStaleLocks(tools_.stop).outcome;
    if (!outcome.succeeded())
        KelvaneSystemLog("The lock of the backup stands. %@", outcome.errors);
    return outcome.succeeded();
}

void RestoreRun::deliver(const StagingFolder& staging, const FileErrors& errors,
                         const RestorePieces& pieces) {
    ::syncfs(staging.descriptor()); // a rename may reach the disk before what it names
    RestoreDelivery delivery(*tools_.index, staging, errors, tools_.stop);
    for (const RestorePiece& piece : pieces) {
        delivery.deliver(piece);
        std::ranges::move(delivery.takeFailures(), std::back_inserter(failures_[piece.job]));
    }
    std::ranges::move(delivery.takeMadeFolders(), std::back_inserter(made_));
}

// The inner ones first: their coming has changed the times of those around them.
void RestoreRun::finishMadeFolders() {
    for (auto each = made_.rbegin(); each != made_.rend(); ++each) {
        const FileDescriptor folder = openFolder(each->target);
        const std::string reason =
            folder ? each->metadata.applyTo(folder.get(), FolderMetadata::Use::Final) : "it has gone";
        if (!reason.empty())
            KelvaneSystemLog("%@ is not as it was saved: %@", each->target, reason);
    }
}

RestoreRun::Fetching RestoreRun::fetch(const RestorePlan& plan, const StagingFolder& staging,
                                       FileErrors& fileErrors) const {
    if (!staging.clear())
        return {"the staging folder cannot be emptied: " + std::generic_category().message(errno)};
    std::string errors;
    for (const auto& [number, paths] : plan) {
        const Snapshot* const snapshot = tools_.index->snapshot(number);
        if (!snapshot)
            return {"the snapshot that holds it is not in the backup any more"};
        for (const auto& includes : includeArguments(paths)) {
            std::vector<std::string> arguments{"restore", snapshot->id, "--target",
                                               staging.path() + '/' + std::to_string(number)};
            arguments.insert(arguments.end(), includes.begin(), includes.end());
            Fetching call = callRestic(std::move(arguments), staging.path(), errors);
            if (!call.failure.empty() || tools_.stop.isSet())
                return call;
        }
    }
    const FileErrors before = std::exchange(fileErrors, fileErrorsIn(*tools_.index, errors));
    if (errors.size() >= mostErrorBytes)
        fileErrors.below["/"] = "restic met more errors than can be looked through";
    return {{}, mayPass(fileErrors, before)};
}

RestoreRun::Fetching RestoreRun::callRestic(std::vector<std::string> arguments, const std::string& staging,
                                            std::string& errors) const {
    Restic::Call call;
    call.arguments = std::move(arguments);
    call.patience = call.patienceWithRetries = forEver; // the watch is the one to lose it
    call.grace = grace;
    call.takesLockIfPossible = true;
    call.ignoresReadOnlyModes = true; // the delivery sets the modes
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

void RestoreRun::fail(const RestorePieces& pieces, const std::string& reason) {
    for (const RestorePiece& piece : pieces)
        failures_[piece.job].push_back({tools_.index->pathOf(*piece.item), reason});
}

void RestoreRun::countArrival(const Arrival& arrival) const {
    Arrival sum = arrival;
    sum.files += filesBefore_;
    tools_.onArrival(sum);
}

} // namespace kelvane
