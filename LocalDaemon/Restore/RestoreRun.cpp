#include "LocalDaemon/Restore/RestoreRun.h"

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "LocalDaemon/Restore/Staging/RestoreAccess.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"
#include "Support/Logging.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::uint64_t blockSize = 4096; // Approximate size of a disk block in bytes.

// Removing the staging folder has changed the folder's times.
void setTime(const std::string& folder, FileTime modified) {
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, modified.asTimespec()};
    const FileDescriptor place = openFolder(folder);
    if (!place || ::utimensat(AT_FDCWD, pathOfDescriptor(place.get()).c_str(), times.data(), 0) != 0)
        logWarning("The time of %@ cannot be set: %@", folder, errorText());
}

// Each file takes some space in addition to its contents.
std::uint64_t spaceFor(const FileTotals& totals) {
    return totals.bytes + totals.count * blockSize;
}

} // namespace

RestoreRun::RestoreRun(Tools tools)
    : tools_(std::move(tools)),
      fetch_({.restic = tools_.restic,
              .index = tools_.index,
              .stop = tools_.stop,
              .waits = tools_.waits,
              .onWait = tools_.onWait,
              .onArrival = [this](const Arrival& arrival) { countArrival(arrival); }}),
      nodes_(tools_.restic, tools_.stop) {}

std::vector<RestoreRun::Failures> RestoreRun::run(const std::vector<RestoreJob>& jobs) {
    failures_.assign(jobs.size(), {});
    firstJob_ = jobs.front().id;
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
        addPiece({.job = number, .item = item, .target = job.target});
}

void RestoreRun::addPiece(const RestorePiece& piece) {
    const StagingPlace place = stagingPlaceFor(piece.target, piece.item->kind == ItemKind::Folder);
    if (place.kind == StagingPlace::Kind::Ready)
        return groups_[place.folder].push_back(piece);
    if (place.kind == StagingPlace::Kind::Nowhere)
        return fail({piece}, {place.reason});
    narrow(piece);
    for (const BackupIndex::Item* const child : lastContents(*tools_.index, *piece.item))
        addPiece({.job = piece.job,
                  .item = child,
                  .target = withSeparator(piece.target).append(tools_.index->nameOf(*child))});
}

void RestoreRun::narrow(const RestorePiece& folder) {
    if (folder.item->snapshot == 0 || folder.target == tools_.index->pathOf(*folder.item))
        return;
    const FileDescriptor there = openFolder(folder.target);
    if (!there)
        return;
    SavedAccess access{.user = folder.item->uid, .group = folder.item->gid, .mode = folder.item->mode};
    const Snapshot* const snapshot = tools_.index->snapshot(folder.item->snapshot);
    RestoreTrouble trouble = snapshot ? RestoreTrouble() : goneSnapshot();
    std::optional<SavedNode> node;
    if (snapshot)
        node = nodes_.find(snapshot->id, tools_.index->pathOf(*folder.item), trouble);
    if (!node && tools_.stop.isSet())
        return; // Nothing will be delivered to it any more.
    if (!node) {
        access.mode &= mode_t{S_IRWXU};
        fail({folder},
             {"only its owner has access: cannot determine whether it had an ACL: " + trouble.reason,
              trouble.isSnapshotGone});
    }
    const std::string reason = narrowFolder(there.get(), access, node ? node->attributes : Attributes());
    if (!reason.empty())
        fail({folder},
             {folder.target + " is accessible to users who must not see the restored files: " + reason});
}

RestorePortions RestoreRun::divide(const RestorePieces& pieces, std::uint64_t freeSpace) {
    RestorePortions parts = divided(*tools_.index, pieces, freeSpace);
    for (const RestorePiece& folder : parts.folders)
        narrow(folder);
    return parts;
}

void RestoreRun::runGroup(const std::string& folder, const RestorePieces& pieces) {
    std::uint64_t wanted = 0;
    for (const RestorePiece& piece : pieces)
        wanted += spaceFor(lastTotals(*tools_.index, *piece.item));
    const std::uint64_t freeSpace = tools_.freeSpace(folder);
    if (wanted <= freeSpace)
        fetchAndDeliver(folder, pieces);
    else
        runPortions(folder, divide(pieces, freeSpace));
    if (tools_.stop.isSet())
        return;
    for (const RestorePiece& piece : pieces)
        if (piece.target == folder && piece.item->snapshot != 0)
            setTime(folder, piece.item->modified);
}

// Replacing existing files frees space, so portions that did not fit are tried again.
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
    RestorePieces large;
    for (RestorePortion& portion : waiting)
        std::ranges::move(portion.pieces, std::back_inserter(large));
    std::ranges::move(runWithoutSpace(folder, large), std::back_inserter(parts.folders));
    std::ranges::reverse(parts.folders); // Inner ones first: delivering into a folder changes its times.
    noteFailures(parts.folders);
    if (!parts.folders.empty() && !tools_.stop.isSet())
        fetchAndDeliver(folder, parts.folders);
}

void RestoreRun::noteFailures(RestorePieces& folders) const {
    std::vector<std::set<std::string, std::less<>>> around(failures_.size());
    for (std::size_t job = 0; job < failures_.size(); ++job)
        for (const RestoreFailure& failure : failures_[job])
            for (std::string_view at = folderOf(failure.path); at.size() > 1; at = folderOf(at))
                if (!around[job].emplace(at).second)
                    break;
    for (RestorePiece& folder : folders)
        folder.hasFailures = around[folder.job].contains(tools_.index->pathOf(*folder.item));
}

// Restores the files in portions that fit into the free space, hard links of one inode together, and last the
// files that do not fit at all.
RestorePieces RestoreRun::runWithoutSpace(const std::string& folder, const RestorePieces& pieces) {
    RestorePortions parts = divide(pieces, 0);
    RestorePieces fitting;
    RestorePieces large;
    std::uint64_t wanted = 0; // The space needed by those that fit.
    const auto bring = [&] {
        if (!fitting.empty() && !tools_.stop.isSet())
            fetchAndDeliver(folder, std::exchange(fitting, {}));
        wanted = 0;
    };
    for (const RestorePortion& part : parts.portions) {
        const std::uint64_t more = spaceFor({part.pieces.size(), part.bytes});
        if (wanted + more > tools_.freeSpace(folder) / 2)
            bring();
        const bool isFitting = more <= tools_.freeSpace(folder);
        std::ranges::copy(part.pieces, std::back_inserter(isFitting ? fitting : large));
        wanted += isFitting ? more : 0;
    }
    bring();
    if (!large.empty() && !tools_.stop.isSet())
        streamAndDeliver(folder, large);
    return std::move(parts.folders);
}

template <class Work>
void RestoreRun::inStaging(const std::string& folder, const RestorePieces& pieces, Work work) {
    const std::string path = newStagingPath(folder, firstJob_);
    tools_.journal.stagingMade(path);
    {
        const StagingFolder staging(path);
        if (staging.failure().empty())
            work(staging);
        else
            fail(pieces, {staging.failure()});
        // Also flushes the last renames before the journal forgets the jobs.
        if (const std::string failure = staging.failure().empty() ? staging.sync() : ""; !failure.empty())
            fail(pieces, {failure});
    }
    removeJournaledStaging(tools_.journal, path);
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
        if (const RestoreTrouble trouble = fetch_.fetch(plan, staging, errors); !trouble.isNone())
            fail(pieces, trouble);
        else if (!tools_.stop.isSet())
            deliver(staging, errors, pieces);
    });
}

void RestoreRun::streamAndDeliver(const std::string& folder, const RestorePieces& pieces) {
    RestorePieces files;
    std::map<std::uint32_t, std::set<std::string>> around;
    for (const RestorePiece& piece : pieces)
        if (piece.item->kind != ItemKind::File) {
            failWithoutSpace(piece, folder);
        } else {
            files.push_back(piece);
            around[piece.item->snapshot].emplace(folderOf(tools_.index->pathOf(*piece.item)));
        }
    RestorePlan plan;
    for (const auto& [snapshot, folders] : around)
        plan[snapshot].foldersAlone.assign(folders.begin(), folders.end());
    inStaging(folder, files, [&](const StagingFolder& staging) {
        FileErrors errors;
        if (const RestoreTrouble trouble = fetch_.fetch(plan, staging, errors); !trouble.isNone())
            return fail(files, trouble);
        tools_.onWait("Little free space in " + folder +
                      ": large files, which may be sparse, are restored one by one, which takes longer.");
        RestoreStream stream({.restic = tools_.restic,
                              .index = tools_.index,
                              .nodes = nodes_,
                              .stop = tools_.stop,
                              .onArrival = [this](const Arrival& arrival) { countArrival(arrival); }});
        for (const RestorePiece& file : files)
            if (tools_.stop.isSet())
                break;
            else if (tools_.freeSpace(folder) < blockSize)
                failWithoutSpace(file, folder);
            else
                streamAndDeliver(stream, staging, file);
        tools_.onWait({});
    });
}

void RestoreRun::streamAndDeliver(RestoreStream& stream, const StagingFolder& staging,
                                  const RestorePiece& file) {
    const RestoreTrouble trouble = stream.bring(*file.item, staging);
    if (tools_.stop.isSet())
        return;
    if (!trouble.isNone())
        return fail({file}, trouble);
    const std::size_t before = failures_[file.job].size();
    deliver(staging, {}, {file});
    if (failures_[file.job].size() == before)
        stream.noteDelivered(file.target);
}

void RestoreRun::deliver(const StagingFolder& staging, const FileErrors& errors,
                         const RestorePieces& pieces) {
    // A rename may reach the disk before the file's contents, or without them.
    if (const std::string failure = staging.sync(); !failure.empty())
        return fail(pieces, {failure});
    RestoreDelivery delivery(*tools_.index, staging, errors, tools_.journal, nodes_,
                             tools_.restic->place().passwordFile, tools_.stop);
    delivery.inspect(pieces);
    for (const RestorePiece& piece : pieces) {
        delivery.deliver(piece);
        std::ranges::move(delivery.takeFailures(), std::back_inserter(failures_[piece.job]));
    }
    std::ranges::move(delivery.takeMadeFolders(), std::back_inserter(made_));
}

// Inner folders first, since creating them has changed the times of the outer ones.
void RestoreRun::finishMadeFolders() {
    for (auto each = made_.rbegin(); each != made_.rend(); ++each) {
        const FileDescriptor folder = openFolder(each->target);
        const std::string reason =
            folder ? each->metadata.applyTo(folder.get(), FolderMetadata::Use::Final) : errorText();
        if (!reason.empty())
            logWarning("%@ differs from the backup: %@", each->target, reason);
    }
}

void RestoreRun::fail(const RestorePieces& pieces, const RestoreTrouble& trouble) {
    for (const RestorePiece& piece : pieces)
        failures_[piece.job].push_back(
            {tools_.index->pathOf(*piece.item), trouble.reason, trouble.isSnapshotGone});
}

void RestoreRun::failWithoutSpace(const RestorePiece& piece, const std::string& folder) {
    fail({piece},
         {formatText("not enough space: %llu bytes needed, %llu free in %@",
                     spaceFor(lastTotals(*tools_.index, *piece.item)), tools_.freeSpace(folder), folder)});
}

void RestoreRun::countArrival(const Arrival& arrival) const {
    Arrival sum = arrival;
    sum.files += filesBefore_;
    tools_.onArrival(sum);
}

} // namespace kelvane
