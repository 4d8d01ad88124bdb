// One backup.

#include "Foundation/Unicode.h"
#include "LocalDaemon/BackupRunner.h"
#include "LocalDaemon/BackupTargets.h"
#include "LocalDaemon/BackupTrouble.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/LateChanges.h"
#include "Platform/FileDescriptor.h"
#include "Support/Logging.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* unreadAlert = "files_not_read";
constexpr std::size_t mostNamed = 5; // in an alert

std::string joined(const std::vector<std::string>& paths) {
    std::string text;
    for (std::size_t at = 0; at < std::min(paths.size(), mostNamed); ++at)
        text += "\n" + textFromPath(paths[at]);
    if (paths.size() > mostNamed)
        text += "\n…";
    return text;
}

// Those where something was saved before.
std::vector<std::string> savedAmong(const BackupIndex& index, std::vector<std::string> paths) {
    std::erase_if(paths, [&](const std::string& path) {
        const BackupIndex::Item* const item = index.find(path);
        return !item || !index.hasContent(*item);
    });
    return paths;
}

// Returns the time before it: what changes from then on has a later time. Pages that a program has mapped and
// written keep the time of their first change until they are on the disk.
FileTime waitForLaterTimes(const std::vector<std::string>& paths) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::set<dev_t> written;
    for (const std::string& path : paths) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0 || !written.insert(status.st_dev).second)
            continue;
        // A target that is a file lies on the file system of its folder, and opening a pipe would let its
        // writers go on.
        const std::string folder = S_ISDIR(status.st_mode) ? path : std::string(folderOf(path));
        if (const FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); opened)
            ::syncfs(opened.get());
    }
    std::this_thread::sleep_for(longestTick);
    return FileTime(now);
}

// `isAllKnown`: it lacks nothing but what it is known to lack.
void complete(IndexKeeper::Made& made, const std::set<std::string, std::less<>>& absent, bool isAllKnown) {
    made.lacks.insert(made.lacks.end(), absent.begin(), absent.end());
    made.isPartial = made.isPartial || !made.lacks.empty() || !isAllKnown;
    if (!isAllKnown)
        made.lacks.clear();
}

} // namespace

ResticOutcome BackupRunner::backUp(const std::string& path, bool isPartial, const StopSignal& stop) {
    const std::uint64_t changes = state_->backupNeed().changes;
    const auto mounts = options_.lookForDisks();
    auto absent = state_->absentInBackup();
    const bool isIncomplete = isPartial || !absent.empty();
    BackupRun::Wanted wanted;
    wanted.targets = backupTargets(*state_->rules(), path, stop.flag());
    if (stop.isSet())
        return {ResticTrouble::Stopped, false, {}};
    if (wanted.targets.paths.empty()) { // nothing is to be in the backup
        if (!isPartial)
            state_->noteUnread(std::nullopt);
        return {};
    }
    if (!isPartial && !prepareRepair(stop))
        return {ResticTrouble::Stopped, false, {}};
    wanted.isForced = !isPartial && verification_->mustStoreAgain();
    const IndexKeeper::Index index = keeper_->index();
    const FileTotals waiting = state_->totals().pending;
    describe(wanted, *index, isPartial, isIncomplete);
    const FileTime begin = waitForLaterTimes(wanted.targets.paths);
    BackupRun::Result result = BackupRun(*state_, keeper_->repository()).run(wanted, stop);
    state_->setIndexCurrent(false); // until the snapshot has been listed
    if (!result.outcome.succeeded())
        return result.outcome;
    if (wanted.isForced)
        verification_->noteStoredAgain();
    IndexKeeper::Made made{result.snapshotId, isIncomplete, isIncomplete, savedAmong(*index, result.unread)};
    const bool areMoreUnread = result.unread.size() >= BackupRun::mostUnread; // perhaps
    noteUnread(std::move(result.unread), isPartial, changes);
    KelvaneSystemLog("Backed up%@; snapshot %@, %llu bytes were waiting.", isPartial ? ": " + path : "",
                     result.snapshotId, waiting.bytes);
    const bool haveSameDisks = options_.lookForDisks() == mounts; // one may have gone meanwhile
    absent.merge(state_->absentInBackup());
    complete(made, absent, !isPartial && haveSameDisks && !areMoreUnread);
    ResticOutcome outcome = keeper_->add(made, stop);
    if (!outcome.succeeded())
        return outcome;
    noteIndexCurrent();
    if (!isPartial && haveSameDisks)
        state_->noteMounts(mounts, !made.isPartial);
    touchLate(begin);
    return outcome;
}

// What is new is saved even when what is damaged cannot be stored again now. False when it was stopped.
bool BackupRunner::prepareRepair(const StopSignal& stop) {
    if (!verification_->canRepair())
        return true;
    const ResticOutcome outcome = verification_->prepareRepair(stop);
    if (!outcome.succeeded() && outcome.trouble != ResticTrouble::Stopped)
        KelvaneSystemLog("What is damaged in the backup cannot be stored again yet: %@", reasonOf(outcome));
    return outcome.trouble != ResticTrouble::Stopped;
}

void BackupRunner::noteUnread(std::vector<std::string> unread, bool isPartial, std::uint64_t changes) {
    for (const std::string& link : state_->lossyLinks())
        unread.push_back(link + ": the target of this link is not UTF-8 text, which restic cannot keep");
    if (!isPartial)
        state_->noteUnread(unread.empty() && !verification_->isBeyondRepair() ? std::nullopt
                                                                              : std::optional(changes));
    if (!isPartial || (!unread.empty() && !state_->standingAlert(unreadAlert)))
        reportUnread(unread); // what others could not be read a part does not know
}

void BackupRunner::touchLate(FileTime begin) const {
    if (const std::size_t touched = touchLateChanges(*keeper_->index(), begin); touched != 0)
        KelvaneSystemLog("%llu files changed while they were backed up; the next backup reads them again.",
                         touched);
}

void BackupRunner::describe(BackupRun::Wanted& wanted, const BackupIndex& index, bool isPartial,
                            bool isIncomplete) const {
    wanted.tags = {keeper_->repository().tag(), keeper_->nextSequenceTag()};
    if (isIncomplete)
        wanted.tags.emplace_back(partialTag);
    if (const Snapshot* const parent = index.newestCompleteSnapshot())
        wanted.parent = parent->id;
    wanted.isInitial = wanted.parent.empty();
    const FileTotals found = state_->found();
    const FileTotals waiting = state_->totals().pending;
    wanted.unchanged =
        isPartial ? found : FileTotals{found.count - waiting.count, found.bytes - waiting.bytes};
    wanted.hasLowerPriority = state_->settings().lowerPriorityMode;
    wanted.patience = options_.patience;
    wanted.patienceWithRetries = options_.patienceWithRetries;
}

void BackupRunner::reportUnread(const std::vector<std::string>& paths) {
    for (const std::string& path : paths)
        KelvaneSystemLog("Not backed up: %@", path);
    if (paths.empty())
        return state_->withdrawAlert(unreadAlert);
    state_->raiseAlert({unreadAlert, "warning", "Some files are not backed up.",
                        "They could not be read or cannot be kept. Look at who may read them, or exclude "
                        "them:" +
                            joined(paths)});
}

} // namespace kelvane
