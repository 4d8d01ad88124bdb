// Runs a backup.

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/Backup/BackupRunner.h"
#include "LocalDaemon/Backup/BackupTrouble.h"
#include "LocalDaemon/Backup/LargeFiles.h"
#include "LocalDaemon/Index/LateChanges.h"
#include "LocalDaemon/Rules/BackupTargets.h"
#include "LocalDaemon/Scan/FolderContents.h"
#include "Platform/FileDescriptor.h"
#include "Platform/Files/MountTable.h"
#include "Support/Logging.h"
#include "Support/MessageLine.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* unreadAlert = "files_not_read";
constexpr const char* largeFilesAlert = "large_files";

std::string joined(const std::vector<std::string>& paths) {
    std::string text;
    for (std::size_t at = 0; at < std::min(paths.size(), mostNamed); ++at)
        text += "\n" + messageLine(paths[at]);
    if (paths.size() > mostNamed)
        text += formatText("\nand %llu more (see the log)", paths.size() - mostNamed);
    return text;
}

// Without its key, an encrypted folder lists names that differ from the saved ones, and none of them can be
// opened. Returns the saved encrypted folder that contains such a name; empty for any other path.
std::string lockedFolderAround(const BackupIndex& index, const std::string& path) {
    if (!silentMountAround(path).empty())
        return {};
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file || errno != ENOKEY)
        return {};
    for (std::string_view at = folderOf(path); at.size() > 1; at = folderOf(at)) {
        const std::string folder(at);
        if (!isEncrypted(folder))
            return {};
        if (const BackupIndex::Item* const item = index.find(at); item && index.hasContent(*item))
            return folder;
    }
    return {};
}

// Returns the paths that have been saved before; a name in a locked encrypted folder counts as the folder.
std::vector<std::string> savedAmong(const BackupIndex& index, std::vector<std::string> paths) {
    for (std::string& path : paths)
        if (std::string locked = lockedFolderAround(index, path); !locked.empty())
            path = std::move(locked);
    std::ranges::sort(paths);
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    std::erase_if(paths, [&](const std::string& path) {
        const BackupIndex::Item* const item = index.find(path);
        return !item || !index.hasContent(*item);
    });
    return paths;
}

// Returns the snapshot that should have most files unchanged: the last complete one, or if there is none,
// the last one whose missing paths are known. Empty for none.
std::string parentIn(const BackupIndex& index) {
    const Snapshot* parent = index.newestCompleteSnapshot();
    if (!parent)
        for (const auto& [number, snapshot] : index.snapshots())
            parent = snapshot.lacks.empty() ? parent : &snapshot;
    return parent ? parent->id : std::string();
}

// Returns the time before the wait: files that change after the wait have a later time.
FileTime waitForLaterTimes() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::this_thread::sleep_for(longestTick);
    return FileTime(now);
}

// A file that is written through a memory mapping keeps the time of its first change until its pages are
// flushed.
void writeToDisk(const std::vector<std::string>& paths) {
    std::set<dev_t> written;
    for (const std::string& path : paths) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0 || !written.insert(status.st_dev).second)
            continue;
        // A target that is a file is on the file system of its folder, and opening a pipe would unblock
        // its writers.
        const std::string folder = S_ISDIR(status.st_mode) ? path : std::string(folderOf(path));
        if (const FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); opened)
            ::syncfs(opened.get());
    }
}

// `isAllKnown`: all paths that it lacks are known.
void complete(IndexKeeper::Made& made, const std::set<std::string, std::less<>>& absent, bool isAllKnown) {
    made.lacks.insert(made.lacks.end(), absent.begin(), absent.end());
    made.isPartial = made.isPartial || !made.lacks.empty() || !isAllKnown;
    if (!isAllKnown)
        made.lacks.clear();
}

} // namespace

// restic would take uncertain files as unchanged, and reads them again only if the parent snapshot lacks
// them. Large files must not delay the rest. If there are files of either kind, a snapshot without them
// is made first.
ResticOutcome BackupRunner::backUpEverything(const StopSignal& stop) {
    Part whole;
    std::vector<std::string> last = filesToComeLast(stop);
    if (!last.empty() && !verification_->mustStoreAgain()) {
        const IndexKeeper::Index before = keeper_->index();
        if (ResticOutcome outcome = backUp({.path = everything, .leftOut = last}, stop); !outcome.succeeded())
            return outcome;
        whole.isForced = keeper_->index() == before; // No snapshot was made: there are no other files.
        if (!whole.isForced)
            whole.parent = keeper_->index()->newestSnapshot()->id;
        whole.readAgain = std::move(last);
    }
    ResticOutcome outcome = backUp(whole, stop);
    if (outcome.succeeded())
        state_->alerts()->withdraw(largeFilesAlert);
    return outcome;
}

std::vector<std::string> BackupRunner::filesToComeLast(const StopSignal& stop) const {
    const MountedSelection selection = disks_->selection();
    const IndexKeeper::Index index = keeper_->index();
    std::vector<std::string> files;
    if (state_->totals().pending.bytes >= options_.largeFile)
        files = pendingLargeFiles(selection, *index, options_.largeFile, stop.flag());
    reportLarge(files);
    for (std::string& path : uncertainFiles(*index))
        if (selection.verdictFor(path).isIn() && std::ranges::find(files, path) == files.end())
            files.push_back(std::move(path));
    files.resize(std::min(files.size(), BackupRun::mostLeftOut)); // The next backup handles the others.
    return files;
}

void BackupRunner::reportLarge(const std::vector<std::string>& paths) const {
    if (!paths.empty())
        state_->alerts()->raise(
            {.kind = largeFilesAlert,
             .severity = "information",
             .title = "Large files are being backed up.",
             .body = "Until they have been read, which may take hours, nothing that changes is backed "
                     "up. To leave one out, exclude it:" +
                     joined(paths)});
}

ResticOutcome BackupRunner::backUp(const Part& part, const StopSignal& stop) {
    Before before{state_->backupNeed().changes, disks_->updateMounts(), disks_->absentInBackup()};
    IndexKeeper::Made made;
    // A file that is renamed from now on may be missed under its new name as well.
    made.began = waitForLaterTimes();
    BackupRun::Wanted wanted;
    wanted.targets = backupTargets(disks_->selection(), part.path, stop.flag());
    wanted.leftOut = part.leftOut;
    std::erase_if(wanted.targets.paths, [&](const std::string& path) {
        return std::ranges::find(part.leftOut, path) != part.leftOut.end();
    });
    if (stop.isSet())
        return {.trouble = ResticTrouble::Stopped};
    if (wanted.targets.paths.empty()) { // There is nothing to back up.
        if (part.isWhole())
            noteUnread({}, false, before.changes);
        return {};
    }
    if (part.isWhole() && !prepareRepair(stop))
        return {.trouble = ResticTrouble::Stopped};
    wanted.isForced = part.isForced || (part.isWhole() && verification_->mustStoreAgain());
    const IndexKeeper::Index index = keeper_->index();
    const FileTotals waiting = state_->totals().pending;
    const bool isIncomplete = !part.isWhole() || !before.absent.empty();
    describe(wanted, *index, part, isIncomplete);
    made.isPartial = isIncomplete;
    made.hasPartialTag = isIncomplete;
    made.lacks = part.leftOut;
    made.readAgain = wanted.isForced ? uncertainFiles(*index) : part.readAgain;
    writeToDisk(wanted.targets.paths);
    BackupRun::Result result = BackupRun(*state_, keeper_->repository()).run(wanted, stop);
    state_->setIndexCurrent(false); // Until the snapshot has been listed.
    if (!result.outcome.succeeded())
        return result.outcome;
    if (wanted.isForced)
        verification_->noteStoredAgain();
    logNotice("Backed up%@: snapshot %@, %llu bytes were pending.",
              part.path == everything ? "" : " " + part.path, result.snapshotId, waiting.bytes);
    made.id = result.snapshotId;
    return takeMade(part, std::move(before), std::move(made), std::move(result), stop);
}

ResticOutcome BackupRunner::takeMade(const Part& part, Before before, IndexKeeper::Made made,
                                     BackupRun::Result result, const StopSignal& stop) {
    const std::vector<std::string> saved = savedAmong(*keeper_->index(), result.unread);
    made.lacks.insert(made.lacks.end(), saved.begin(), saved.end());
    // A full list may have been truncated.
    const bool isListFull = std::max(result.unread.size(), result.gone.size()) >= BackupRun::mostUnread;
    noteUnread(std::move(result.unread), !part.isWhole(), before.changes);
    // A disk may have been unmounted during the backup.
    const bool haveSameDisks = disks_->updateMounts() == before.mounts;
    before.absent.merge(disks_->absentInBackup());
    complete(made, before.absent, part.path == everything && haveSameDisks && !isListFull);
    // A deleted file may have been moved into a folder that restic had already read; the next snapshot
    // shows it.
    if (!made.isPartial || !made.lacks.empty())
        std::ranges::move(savedAmong(*keeper_->index(), result.gone), std::back_inserter(made.lacks));
    ResticOutcome outcome = keeper_->add(made, stop);
    if (!outcome.succeeded())
        return outcome;
    noteIndexCurrent();
    if (part.isWhole() && haveSameDisks)
        disks_->noteMounts(before.mounts, !made.isPartial);
    return outcome;
}

// New files are saved even when damaged data cannot be stored again now. Returns false when it was
// stopped.
bool BackupRunner::prepareRepair(const StopSignal& stop) {
    if (!verification_->canRepair())
        return true;
    const ResticOutcome outcome = verification_->prepareRepair(stop);
    if (!outcome.succeeded() && outcome.trouble != ResticTrouble::Stopped)
        logWarning("Damaged files cannot be stored again yet: %@", reasonOf(outcome));
    return outcome.trouble != ResticTrouble::Stopped;
}

void BackupRunner::noteUnread(std::vector<std::string> unread, bool isPartial, std::uint64_t changes) {
    for (const std::string& link : state_->lossyLinks())
        unread.push_back(link + ": the target of this link is not UTF-8 text, which restic cannot keep");
    if (!isPartial)
        state_->noteUnread(unread.empty() && !verification_->isBeyondRepair() ? std::nullopt
                                                                              : std::optional(changes));
    if (!isPartial || (!unread.empty() && !state_->alerts()->standing(unreadAlert)))
        reportUnread(unread); // A partial backup does not know the unreadable files elsewhere.
}

void BackupRunner::describe(BackupRun::Wanted& wanted, const BackupIndex& index, const Part& part,
                            bool isIncomplete) const {
    wanted.tags = {keeper_->repository().tag(), keeper_->nextSequenceTag()};
    if (isIncomplete)
        wanted.tags.emplace_back(partialTag);
    wanted.parent = part.parent.empty() ? parentIn(index) : part.parent;
    wanted.isInitial = !index.newestCompleteSnapshot();
    const FileTotals found = state_->found();
    const FileTotals waiting = state_->totals().pending;
    wanted.unchanged = part.path != everything
                           ? found
                           : FileTotals{found.count - waiting.count, found.bytes - waiting.bytes};
    if (part.isWhole() && !wanted.isForced)
        wanted.pendingBytes = waiting.bytes;
    wanted.hasLowerPriority = state_->setting(&Settings::lowerPriorityMode);
    wanted.stallTimeout = options_.stallTimeout;
    wanted.stallTimeoutInRetries = options_.stallTimeoutInRetries;
}

void BackupRunner::reportUnread(const std::vector<std::string>& paths) {
    for (const std::string& path : paths)
        logWarning("Not backed up: %@", messageLine(path));
    if (paths.empty())
        return state_->alerts()->withdraw(unreadAlert);
    state_->alerts()->raise(
        {.kind = unreadAlert,
         .severity = "warning",
         .title = "Some files are not backed up.",
         .body = "They could not be read or cannot be saved. Check their permissions, or exclude "
                 "them:" +
                 joined(paths)});
}

} // namespace kelvane
