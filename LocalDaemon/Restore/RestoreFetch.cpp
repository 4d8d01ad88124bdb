#include "LocalDaemon/Restore/RestoreFetch.h"

#include "Foundation/Format.h"
#include "LocalDaemon/Restic/Repository.h"
#include "LocalDaemon/Restic/RepositoryCheck.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "LocalDaemon/Restore/Staging/RestoreMetadata.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <map>

namespace kelvane {
namespace {

// The user waits for a cancelled restore to end; restic removes its lock in far less time.
constexpr std::chrono::milliseconds grace(1500);
constexpr std::chrono::hours forEver(24 * 365);
constexpr std::size_t mostErrorBytes = std::size_t{16} << 20U;
constexpr std::size_t mostFoldersListed = 100; // Folders listed for the errors of one snapshot.

constexpr std::uint32_t anyComputer = 0; // Locks and packs have no tag.

constexpr const char* callFolder = "0"; // No snapshot has this number.

// The beginning of restic's last message when it has restored everything that it could.
constexpr std::string_view doneWithErrors = "Fatal: There were ";

// restic's message when a file has a blob that no index of the repository lists.
constexpr std::string_view contentsUnknown = "Unknown blob ";

bool endsWithCountOfErrors(std::string_view line) {
    const std::size_t at = line.rfind(doneWithErrors);
    if (at == std::string_view::npos)
        return false;
    line.remove_prefix(at + doneWithErrors.size());
    line.remove_prefix(std::min(line.find_first_not_of("0123456789"), line.size()));
    return line == " errors";
}

} // namespace

RestoreTrouble RestoreFetch::fetch(const RestorePlan& plan, const StagingFolder& staging,
                                   FileErrors& errors) const {
    Try last = fetchWhatThereIs(plan, staging, errors);
    for (auto wait = tools_.waits.begin(); last.isTransient && wait != tools_.waits.end();) {
        const std::string reason = !last.trouble.isNone() ? last.trouble.reason
                                   : errors.items.empty() ? errors.below.begin()->second
                                                          : errors.items.begin()->second;
        logWarning("Restore delayed until a retry succeeds: %@", reason);
        tools_.onWait(reason);
        const bool isLastWait = std::next(wait) == tools_.waits.end();
        const bool isToLast = last.isLocked && clearStaleLocks() && isLastWait;
        if (!waitUnlessStopped(*wait, tools_.stop))
            break;
        if (!isToLast)
            ++wait;
        last = fetchWhatThereIs(plan, staging, errors);
    }
    tools_.onWait({});
    return last.trouble;
}

bool RestoreFetch::clearStaleLocks() const {
    const Repository repository(tools_.restic, anyComputer);
    const ResticOutcome outcome = repository.clearStaleLocks(tools_.stop).outcome;
    if (!outcome.succeeded())
        logWarning("Stale locks cannot be removed: %@", outcome.errors);
    return outcome.succeeded();
}

// restic exits at the first file with a missing blob, before it has restored any.
RestoreFetch::Try RestoreFetch::fetchWhatThereIs(const RestorePlan& plan, const StagingFolder& staging,
                                                 FileErrors& errors) const {
    Try first = fetchOnce(plan, {}, staging, errors);
    if (!first.lacksContents || tools_.stop.isSet())
        return first;
    logWarning("Parts of the repository are missing; searching for the affected files.");
    tools_.onWait("Parts of the repository are missing; searching for files that can still be restored.");
    const Damage lost = lostContents();
    tools_.onWait({});
    return lost.paths.empty() ? first : fetchOnce(plan, lost, staging, errors);
}

Damage RestoreFetch::lostContents() const {
    const Repository repository(tools_.restic, anyComputer);
    const RepositoryCheck check(repository);
    const CheckReport report = check.structure(RepositoryCheck::Source::Cache, tools_.stop);
    return report.outcome.succeeded()
               ? check.locate(report, RepositoryCheck::Snapshots::All, tools_.stop).damage
               : Damage();
}

RestoreFetch::Try RestoreFetch::fetchOnce(const RestorePlan& plan, const Damage& lost,
                                          const StagingFolder& staging, FileErrors& errors) const {
    const FileErrors before = std::exchange(errors, {});
    if (!staging.clear())
        return {.trouble = {"the staging folder cannot be emptied: " + errorText()}};
    for (const auto& [number, paths] : plan) {
        Try one = fetchFrom(number, paths, lost, staging, errors);
        if (!one.trouble.isNone() || tools_.stop.isSet())
            return one;
    }
    return {.isTransient =
                isTransient(errors, before, !localFolderOf(tools_.restic->place().location).empty())};
}

// Each call uses a new folder: files restored into the folder of an earlier call would inherit its ACL,
// and its mode may deny access to restic.
RestoreFetch::Try RestoreFetch::fetchFrom(std::uint32_t number, const SnapshotPaths& paths,
                                          const Damage& lost, const StagingFolder& staging,
                                          FileErrors& errors) const {
    const Snapshot* const snapshot = tools_.index->snapshot(number);
    if (!snapshot)
        return {.trouble = goneSnapshot()};
    FileErrors here;
    std::vector<std::string> exclusions;
    if (const auto found = lost.paths.find(snapshot->id); found != lost.paths.end()) {
        exclusions = exclusionArguments(*tools_.index, found->second);
        for (const std::string& pathInJson : found->second)
            for (std::string& path : pathsInIndex(*tools_.index, pathInJson))
                here.items.emplace(std::move(path), "a part of it is missing from the repository");
    }
    const std::string whole = std::to_string(number);
    std::string said;
    for (const auto& includes : includeArguments(paths)) {
        std::vector<std::string> arguments{"restore", snapshot->id, "--target",
                                           staging.path() + '/' + callFolder};
        arguments.insert(arguments.end(), includes.begin(), includes.end());
        arguments.insert(arguments.end(), exclusions.begin(), exclusions.end());
        Try call = callRestic(std::move(arguments), staging.path(), said);
        if (!call.trouble.isNone() || tools_.stop.isSet())
            return call;
        if (!staging.merge(callFolder, whole))
            return {.trouble = {"restored files cannot be moved: " + errorText()}};
    }
    addErrorsOf(snapshot->id, said, here);
    // The newest version of such a file is in another snapshot and may be intact there.
    std::erase_if(here.items, [&](const auto& error) {
        const BackupIndex::Item* const item = tools_.index->find(error.first);
        return item && item->snapshot != number;
    });
    errors.items.merge(here.items);
    errors.below.merge(here.below);
    return {};
}

void RestoreFetch::addErrorsOf(const std::string& snapshot, const std::string& said,
                               FileErrors& errors) const {
    std::map<std::string, std::set<std::string>> listed;
    addFileErrors(errors, *tools_.index, said, [&](const std::string& folder) {
        if (!listed.contains(folder) && listed.size() < mostFoldersListed)
            listed[folder] = specialFilesIn(snapshot, folder);
        return listed.contains(folder) ? listed[folder] : std::set<std::string>();
    });
    if (said.size() >= mostErrorBytes)
        errors.below["/"] = "restic reported too many errors to assign them to files";
}

RestoreFetch::Try RestoreFetch::callRestic(std::vector<std::string> arguments, const std::string& staging,
                                           std::string& errors) const {
    Restic::Call call;
    call.arguments = std::move(arguments);
    // The arrival watch ends a stalled call instead.
    call.stallTimeout = call.stallTimeoutInRetries = forEver;
    call.grace = grace;
    call.takesLockIfPossible = true;
    call.ignoresReadOnlyModes = true; // The delivery sets the modes.
    std::string said;
    bool isDone = false;
    call.onErrorLine = [&](std::string_view line) {
        isDone = line.empty() ? isDone : endsWithCountOfErrors(line);
        if (said.size() < mostErrorBytes)
            said.append(tools_.restic->withoutSecrets(std::string(line))).append("\n");
    };
    const auto onQuiet = [this](bool isQuiet) {
        tools_.onWait(isQuiet ? "No data has arrived from the repository for half a minute." : "");
    };
    ArrivalWatch watch({.stagingFolder = staging,
                        .index = *tools_.index,
                        .onArrival = tools_.onArrival,
                        .onQuiet = onQuiet});
    call.tickInterval = ArrivalWatch::interval;
    call.onTick = [&watch] { return watch.poll(); };
    const ResticOutcome outcome = tools_.restic->run(call, tools_.stop);
    if (outcome.succeeded() || tools_.stop.isSet())
        return {};
    errors += said;
    if (isDone)
        return {};
    return {.trouble = restoreTroubleFor(outcome),
            .isTransient = isTransient(outcome),
            .isLocked = outcome.trouble == ResticTrouble::Locked,
            .lacksContents = lastWordIn(outcome.errors).starts_with(contentsUnknown)};
}

std::set<std::string> RestoreFetch::specialFilesIn(const std::string& snapshot,
                                                   const std::string& folder) const {
    std::set<std::string> paths;
    Restic::Call call;
    call.arguments = {"ls", "--json", "--no-lock", snapshot, folder};
    call.onLine = [&paths](std::string_view line) {
        if (auto listed = itemFrom(line); listed && !listed->isKept)
            paths.insert(std::move(listed->item.path));
        return true;
    };
    const ResticOutcome outcome = tools_.restic->run(call, tools_.stop);
    return outcome.succeeded() ? paths : std::set<std::string>();
}

} // namespace kelvane
