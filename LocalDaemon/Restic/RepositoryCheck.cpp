#include "LocalDaemon/Restic/RepositoryCheck.h"

#include "Foundation/CleanPath.h"
#include "LocalDaemon/Restic/ResticJson.h"
#include "Support/Logging.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace kelvane {
namespace {

// Allows for a slow connection and a large part.
constexpr std::chrono::hours timeToRead{12};
// Longer than the 44 s for which restic retries to read a missing file.
constexpr std::chrono::minutes stallTimeoutInRetries{2};
// Packs or blobs per search, which walks all folders of all snapshots.
constexpr std::size_t mostLocated = 2000;
constexpr unsigned mostRounds = 20; // Rounds of searches.
constexpr std::size_t longestFound = std::size_t{1} << 26U;
constexpr std::size_t idLength = 64;

std::string_view wordAfter(std::string_view line, std::string_view mark) {
    const std::size_t at = line.find(mark);
    if (at == std::string_view::npos)
        return {};
    line.remove_prefix(at + mark.size());
    return line.substr(0, line.find_first_not_of(hexDigits));
}

std::string idAfter(std::string_view line, std::string_view mark) {
    const std::string_view word = wordAfter(line, mark);
    return word.size() == idLength ? std::string(word) : std::string();
}

void insertIfAny(std::set<std::string>& ids, std::string_view id) {
    if (!id.empty())
        ids.emplace(id);
}

// restic reports an unreadable snapshot within its answer, on lines of two kinds.
constexpr std::string_view unreadableMark = " ... which belongs to snapshot ";
std::string_view withoutComplaint(std::string_view line) {
    constexpr std::string_view mark = "Unable to load tree ";
    const std::size_t at = line.rfind(mark);
    const bool isComplaint = at != std::string_view::npos && isHexadecimal(line.substr(at + mark.size()));
    return isComplaint ? line.substr(0, at) : line;
}

bool isVerdict(const CheckReport& report) {
    return report.hasErrors || report.isIndexDamaged;
}

} // namespace

// Parses the messages of restic 0.14. A line may contain a file's name, in quotes and before the blob's
// id.
void takeCheckLine(CheckReport& report, std::string_view line) {
    if (line.starts_with("Fatal: repository contains errors"))
        report.hasErrors = true;
    else if (line.starts_with("error: error loading index ") ||
             line.starts_with("Fatal: LoadIndex returned errors"))
        report.isIndexDamaged = true;
    else if (line.starts_with("error: load <snapshot/"))
        insertIfAny(report.snapshots, wordAfter(line, "load <snapshot/"));
    else if (line.starts_with("pack ") && line.ends_with(": not referenced in any index"))
        insertIfAny(report.unknownPacks, idAfter(line, "pack "));
    else if (line.starts_with("pack ") && (line.ends_with(": does not exist") ||
                                           line.find(": unexpected file size: ") != std::string_view::npos))
        insertIfAny(report.missingPacks, idAfter(line, "pack "));
    else if (line.starts_with("pack ") &&
             line.find(" contained in several indexes: ") == std::string_view::npos)
        insertIfAny(report.damagedPacks, idAfter(line, "pack "));
    else if (line.starts_with("Pack ID does not match, want "))
        insertIfAny(report.damagedPacks, idAfter(line, "want "));
    else if (line.starts_with("  tree ") && line.ends_with(" not found in index"))
        insertIfAny(report.missingBlobs, idAfter(line.substr(line.rfind('"') + 1), " blob "));
    else if (line.starts_with("  id ") && line.ends_with(" not found in repository"))
        insertIfAny(report.missingBlobs, idAfter(line, "id ")); // A tree blob.
}

CheckReport RepositoryCheck::structure(Source source, const StopSignal& stop) const {
    return check(source == Source::Cache ? std::vector<std::string>{"--with-cache"}
                                         : std::vector<std::string>(),
                 stop);
}

CheckReport RepositoryCheck::contents(unsigned part, unsigned parts, const StopSignal& stop) const {
    return check({"--read-data-subset", std::to_string(part) + '/' + std::to_string(parts)}, stop);
}

// Runs without a lock, so that nobody is blocked. When somebody removes something at the same time, it
// reports false errors; callers confirm errors before they act on them.
CheckReport RepositoryCheck::check(std::vector<std::string> arguments, const StopSignal& stop) const {
    CheckReport report;
    Restic::Call call;
    call.arguments = {"check", "--no-lock"};
    call.arguments.insert(call.arguments.end(), arguments.begin(), arguments.end());
    call.stallTimeout = timeToRead;
    call.stallTimeoutInRetries = stallTimeoutInRetries;
    call.hasLowerPriority = true;
    call.onErrorLine = [&report](std::string_view line) { takeCheckLine(report, line); };
    call.onLine = [&report](std::string_view line) {
        takeCheckLine(report, line);
        return true;
    };
    report.outcome = repository_.restic().run(call, stop);
    if (report.outcome.trouble == ResticTrouble::Failed && isVerdict(report)) {
        report.outcome.trouble = ResticTrouble::None;
        report.hasErrors = true;
    }
    std::erase_if(report.damagedPacks, [&](const auto& id) { return report.missingPacks.contains(id); });
    return report;
}

RepositoryCheck::Located RepositoryCheck::locate(const CheckReport& report, Snapshots snapshots,
                                                 const StopSignal& stop) const {
    Located located;
    Damage& damage = located.damage;
    damage.snapshots = report.snapshots;
    const std::size_t packCount = report.missingPacks.size() + report.damagedPacks.size();
    const bool isKnown = packCount > 0 || !report.missingBlobs.empty() || !report.snapshots.empty();
    damage.isEverything = report.isIndexDamaged || (report.hasErrors && !isKnown) ||
                          packCount > mostLocated || report.missingBlobs.size() > mostLocated;
    if (damage.isEverything)
        return located;
    // restic skips a folder in which it found nothing, even if it could not read a subfolder: of
    // snapshots that share such a folder it names only one.
    std::vector<std::string> left; // Snapshots that remain to be searched; empty means all.
    for (unsigned round = 1;; ++round) {
        const std::size_t unreadable = damage.snapshots.size();
        located.outcome = search(report, snapshots, left, damage, stop);
        if (!located.outcome.succeeded() || damage.snapshots.size() == unreadable ||
            snapshots == Snapshots::All)
            break;
        damage.isEverything = round == mostRounds;
        const Repository::Listing listing = repository_.snapshots(stop);
        if (damage.isEverything || !listing.outcome.succeeded())
            return {listing.outcome, damage};
        left.clear();
        for (const Snapshot& each : listing.snapshots)
            if (!damage.holds(each.id, everything))
                left.push_back(each.id);
        if (left.empty())
            break;
    }
    if (located.outcome.trouble == ResticTrouble::Failed) { // For example over a truncated pack.
        logWarning("Cannot determine which files are damaged: %@", reasonOf(located.outcome));
        located.outcome = {};
        damage.isEverything = true;
    }
    return located;
}

ResticOutcome RepositoryCheck::search(const CheckReport& report, Snapshots snapshots,
                                      const std::vector<std::string>& in, Damage& damage,
                                      const StopSignal& stop) const {
    // Packs of folders are found by reading the folders from the repository, since restic does not
    // search for them and its cache has them undamaged. restic would retry for a long time to read
    // missing ones.
    const bool isReadAnew = !report.damagedPacks.empty() && report.missingPacks.empty();
    const struct {
        const char* kind;
        const std::set<std::string>& ids;
        bool isReadAnew;
    } searches[] = {{"--pack", report.missingPacks, false},
                    {"--pack", report.damagedPacks, isReadAnew},
                    {"--blob", report.missingBlobs, false}};
    ResticOutcome outcome;
    for (const auto& each : searches) {
        if (each.ids.empty() || !outcome.succeeded())
            continue;
        std::vector<std::string> arguments{"find", "--json", "--no-lock"};
        if (each.isReadAnew)
            arguments.emplace_back("--no-cache");
        if (snapshots == Snapshots::Own)
            arguments.insert(arguments.end(), {"--tag", repository_.tag()});
        for (const std::string& snapshot : in)
            arguments.insert(arguments.end(), {"--snapshot", snapshot});
        arguments.emplace_back(each.kind);
        outcome = find(std::move(arguments), each.ids, damage, stop);
    }
    return outcome;
}

ResticOutcome RepositoryCheck::find(std::vector<std::string> arguments, const std::set<std::string>& ids,
                                    Damage& damage, const StopSignal& stop) const {
    std::string answer;
    Restic::Call call;
    call.arguments = std::move(arguments);
    call.arguments.insert(call.arguments.end(), ids.begin(), ids.end());
    call.longestLine = longestFound;
    call.stallTimeout = timeToRead;
    call.hasLowerPriority = true;
    call.onLine = [&](std::string_view line) {
        const std::string snapshot =
            line.starts_with(unreadableMark) ? idAfter(line, unreadableMark) : std::string();
        if (snapshot.empty())
            answer.append(withoutComplaint(line));
        else
            damage.snapshots.insert(snapshot);
        return true;
    };
    ResticOutcome outcome = repository_.restic().run(call, stop);
    if (!outcome.succeeded())
        return outcome;
    const auto found = foundItemsFrom(answer);
    if (outcome.hasLostLine || !found)
        outcome = {.trouble = ResticTrouble::Failed, .errors = "restic's answer cannot be read."};
    else
        for (const FoundItem& item : *found)
            damage.paths[item.snapshotId].insert(item.path);
    return outcome;
}

RepositoryCheck::Packs RepositoryCheck::present(const std::set<std::string>& packs,
                                                const StopSignal& stop) const {
    Packs found;
    Restic::Call call;
    call.arguments = {"list", "packs", "--no-lock"};
    call.onLine = [&](std::string_view line) {
        if (std::string id(line); packs.contains(id))
            found.ids.insert(std::move(id));
        return true;
    };
    found.outcome = repository_.restic().run(call, stop);
    return found;
}

// A pack is named by the checksum of its contents, which restic verifies.
RepositoryCheck::Packs RepositoryCheck::damaged(const std::set<std::string>& packs,
                                                const StopSignal& stop) const {
    Packs found;
    for (const std::string& pack : packs) {
        bool isOther = false;
        Restic::Call call;
        call.arguments = {"cat", "pack", "--no-lock", pack};
        call.hasBinaryOutput = true;
        call.stallTimeoutInRetries = {};
        call.onErrorLine = [&](std::string_view line) {
            isOther = isOther || line.find("does not match") != std::string_view::npos;
        };
        const ResticOutcome outcome = repository_.restic().run(call, stop);
        if (outcome.trouble == ResticTrouble::Stopped)
            return {outcome, {}};
        if (isOther || !outcome.succeeded())
            found.ids.insert(pack);
    }
    return found;
}

RepositoryCheck::Packs RepositoryCheck::neededByOthers(const std::set<std::string>& packs,
                                                       const StopSignal& stop) const {
    Packs needed;
    if (packs.empty())
        return needed;
    const Repository::Listing own = repository_.snapshots(stop);
    needed.outcome = own.outcome;
    if (needed.outcome.succeeded())
        needed.outcome = addNeeded(packs, own.snapshots, needed.ids, stop);
    if (own.outcome.succeeded() && needed.outcome.trouble == ResticTrouble::Failed) {
        logWarning("Cannot determine which snapshots need the damaged packs: %@", reasonOf(needed.outcome));
        return {{}, packs};
    }
    return needed;
}

// restic does not report in which of several packs it found something, so the set of packs is bisected.
ResticOutcome RepositoryCheck::addNeeded(const std::set<std::string>& packs, const std::vector<Snapshot>& own,
                                         std::set<std::string>& needed, const StopSignal& stop) const {
    const auto isOwn = [&own](const std::string& id) {
        return std::ranges::any_of(own, [&](const Snapshot& each) { return each.id.starts_with(id); });
    };
    if (packs.size() <= mostLocated) {
        CheckReport report;
        report.damagedPacks = packs;
        Damage damage;
        ResticOutcome outcome = search(report, Snapshots::All, {}, damage, stop);
        const bool areAllReadable = std::ranges::all_of(damage.snapshots, isOwn);
        const bool areAllOwn =
            std::ranges::all_of(damage.paths, [&](const auto& found) { return isOwn(found.first); });
        if (!outcome.succeeded() || (areAllReadable && areAllOwn))
            return outcome;
        if (!areAllReadable || packs.size() == 1) {
            needed.insert(packs.begin(), packs.end());
            return outcome;
        }
    }
    const auto middle = std::next(packs.begin(), static_cast<std::ptrdiff_t>(packs.size() / 2));
    ResticOutcome outcome = addNeeded({packs.begin(), middle}, own, needed, stop);
    return outcome.succeeded() ? addNeeded({middle, packs.end()}, own, needed, stop) : outcome;
}

bool RepositoryCheck::canSetAside() const {
    return !localFolderOf(repository_.restic().place().location).empty();
}

std::string RepositoryCheck::setAside(const std::set<std::string>& packs) const {
    namespace fs = std::filesystem;
    const fs::path folder = localFolderOf(repository_.restic().place().location);
    std::error_code error;
    fs::create_directory(folder / "damaged", error);
    for (const std::string& pack : packs) {
        if (pack.size() != idLength || !isHexadecimal(pack))
            continue;
        const fs::path from = folder / "data" / pack.substr(0, 2) / pack;
        fs::rename(from, folder / "damaged" / pack, error);
        if (error == std::errc::no_such_file_or_directory)
            continue; // The pack has been set aside already, or was pruned.
        if (error)
            return from.string() + ": " + error.message();
        logNotice("Damaged pack file set aside: %@", (folder / "damaged" / pack).string());
    }
    return {};
}

ResticOutcome RepositoryCheck::renewIndex(const StopSignal& stop) const {
    Restic::Call call;
    call.arguments = {"rebuild-index"};
    call.stallTimeout = timeToRead;
    return repository_.restic().run(call, stop);
}

} // namespace kelvane
