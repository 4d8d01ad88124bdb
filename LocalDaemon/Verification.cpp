#include "LocalDaemon/Verification.h"

#include "Foundation/BinaryPropertyList.h"
#include "LocalDaemon/BackupTrouble.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/DamagedFile.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using std::chrono::system_clock;

constexpr const char* damageAlert = "backup_damaged";
constexpr unsigned orderedParts = 8; // few calls, and little to repeat when it has been stopped
constexpr int restAfterStructure = 20;
constexpr std::size_t largestFile = std::size_t{64} << 20U;
constexpr mode_t privateMode = 0600;
constexpr std::size_t mostNamed = 5;

// Whether the disk still has each file in the very version that the damage touches. A pack that is set aside
// takes whole contents along, and with those of folders every other snapshot that holds them.
bool areOnDisk(const Damage& damage, const BackupIndex& index) {
    const auto isAsSaved = [&index](std::string_view snapshotId, const std::string& path) {
        const BackupIndex::Item* const item = index.find(path);
        struct stat status {};
        if (!item || item->kind != ItemKind::File || ::lstat(path.c_str(), &status) != 0)
            return false;
        const bool isSaved = std::ranges::any_of(index.snapshots(), [&](const auto& numbered) {
            return numbered.second.id.starts_with(snapshotId) && item->version <= numbered.first;
        });
        return isSaved && isUnchanged(*item, ItemKind::File, static_cast<std::uint64_t>(status.st_size),
                                      FileTime(status.st_mtim), FileTime(status.st_ctim));
    };
    return !damage.isEverything && damage.snapshots.empty() && !damage.paths.empty() &&
           std::ranges::all_of(damage.paths, [&](const auto& inSnapshot) {
               return std::ranges::all_of(inSnapshot.second, [&](const std::string& path) {
                   return isAsSaved(inSnapshot.first, path);
               });
           });
}

bool isOnDisk(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

Value secondsOf(system_clock::time_point time) {
    return static_cast<long long>(std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count());
}

system_clock::time_point timeFrom(const Value& seconds) {
    return system_clock::time_point(std::chrono::seconds(seconds.int64Value()));
}

struct DamagedFiles {
    std::uint64_t count = 0;
    std::vector<std::string> stored; // again by the next backup: the first of them
    std::vector<std::string> lost;   // likewise
    std::uint64_t lostCount = 0;
};

DamagedFiles damagedFilesOf(const BackupIndex& index) {
    DamagedFiles files;
    if (!index.damage())
        return files;
    index.forEach([&](const BackupIndex::Item& item) {
        if (!index.isDamaged(item))
            return;
        const std::string path = index.pathOf(item);
        const bool isLost = !isOnDisk(path);
        ++files.count;
        files.lostCount += isLost ? 1 : 0;
        auto& named = isLost ? files.lost : files.stored;
        if (named.size() < mostNamed)
            named.push_back(path);
    });
    return files;
}

std::string listed(const std::vector<std::string>& paths, std::uint64_t count) {
    std::string text;
    for (const std::string& path : paths)
        text += "\n" + path;
    return text + (paths.size() < count ? formatText("\n… and %llu more", count - paths.size()) : "");
}

} // namespace

Verification::Verification(std::shared_ptr<DaemonState> state, std::shared_ptr<IndexKeeper> keeper,
                           Options options)
    : state_(std::move(state)), keeper_(std::move(keeper)), options_(std::move(options)) {
    load();
    keeper_->setDamage(damage_);
    tell(std::nullopt);
}

void Verification::order() {
    isOrdered_ = true;
    state_->setVerificationProgress(0.0);
}

std::chrono::milliseconds Verification::timeUntilDue() const {
    const auto now = Clock::now();
    const auto until = [now](Clock::time_point time) {
        return std::max(0ms, std::chrono::ceil<std::chrono::milliseconds>(time - now));
    };
    if (isOrdered_)
        return 0ms;
    const auto partDue = roundBegan_ + options_.round / options_.parts * partsRead_;
    const auto untilPart = std::chrono::ceil<std::chrono::milliseconds>(partDue - system_clock::now());
    const auto part = std::max<std::chrono::milliseconds>(untilPart, until(notBefore_));
    return isStructureWanted_ ? std::min(part, until(std::max(structureNotBefore_, notBefore_))) : part;
}

ResticOutcome Verification::performDue(const StopSignal& stop) {
    ResticOutcome outcome = isOrdered_              ? readAll(stop)
                            : isStructureDue(false) ? checkStructure(stop)
                                                    : readNextPart(stop);
    if (!outcome.succeeded() && outcome.trouble != ResticTrouble::Stopped) {
        KelvaneSystemLog("Verification failed: %@; retrying in %lld s", reasonOf(outcome),
                         std::chrono::ceil<std::chrono::seconds>(options_.retry).count());
        notBefore_ = Clock::now() + options_.retry;
        if (isOrdered_.exchange(false)) {
            lastOutcome_ = "Not verified: " + reasonOf(outcome);
            tell(std::nullopt);
        }
    }
    return outcome;
}

bool Verification::isStructureDue(bool isAwaited) const {
    return isStructureWanted_ && (isAwaited || Clock::now() >= structureNotBefore_);
}

ResticOutcome Verification::checkStructure(const StopSignal& stop) {
    const auto begin = Clock::now();
    CheckReport report = check_.structure(RepositoryCheck::Source::Cache, stop);
    // Without the cache restic tries for minutes to read what is not there.
    if (report.outcome.succeeded() && isNews(report))
        report = check_.structure(report.missingPacks.empty() ? RepositoryCheck::Source::Repository
                                                              : RepositoryCheck::Source::Cache,
                                  stop);
    const ResticOutcome outcome = report.outcome.succeeded() ? take(report, stop) : report.outcome;
    if (outcome.succeeded()) {
        isStructureWanted_ = false;
        structureNotBefore_ = Clock::now() + restAfterStructure * (Clock::now() - begin);
    }
    return outcome;
}

ResticOutcome Verification::readPart(unsigned part, unsigned parts, const StopSignal& stop) {
    CheckReport report = check_.contents(part, parts, stop);
    if (report.outcome.succeeded() && isNews(report))
        report = check_.contents(part, parts, stop);
    return report.outcome.succeeded() ? take(report, stop) : report.outcome;
}

// What is missing is found first without trying to read it, which restic does for a long time.
ResticOutcome Verification::readNextPart(const StopSignal& stop) {
    tell(static_cast<double>(partsRead_) / options_.parts);
    ResticOutcome outcome = checkStructure(stop);
    if (outcome.succeeded() && !isIndexStale_)
        outcome = readPart(partsRead_ + 1, options_.parts, stop);
    if (outcome.succeeded()) {
        if (++partsRead_ >= options_.parts) {
            partsRead_ = 0;
            roundBegan_ = std::max(system_clock::now(), roundBegan_ + options_.round);
        }
        tellOutcome();
        save();
    }
    tell(std::nullopt);
    return outcome;
}

ResticOutcome Verification::readAll(const StopSignal& stop) {
    if (ResticOutcome outcome = checkStructure(stop); !outcome.succeeded())
        return outcome;
    for (; !isIndexStale_ && orderedPartsRead_ < orderedParts; ++orderedPartsRead_) {
        tell(static_cast<double>(orderedPartsRead_) / orderedParts);
        if (ResticOutcome outcome = readPart(orderedPartsRead_ + 1, orderedParts, stop); !outcome.succeeded())
            return outcome;
    }
    orderedPartsRead_ = 0;
    isOrdered_ = false;
    partsRead_ = 0;
    roundBegan_ = system_clock::now() + options_.round / options_.parts;
    save();
    tell(std::nullopt);
    return {};
}

ResticOutcome Verification::take(const CheckReport& report, const StopSignal& stop) {
    if (!isNews(report)) {
        lastVerified_ = system_clock::now();
        tellOutcome();
        return {};
    }
    damagedPacks_.insert(report.damagedPacks.begin(), report.damagedPacks.end());
    for (const std::string& pack : report.missingPacks)
        damagedPacks_.erase(pack);
    CheckReport all = report;
    all.damagedPacks = damagedPacks_;
    const auto located = check_.locate(all, stop);
    if (!located.outcome.succeeded())
        return located.outcome;
    damage_ = located.damage;
    isIndexStale_ = report.isIndexDamaged || !report.missingPacks.empty();
    CheckReport packs;
    packs.damagedPacks = damagedPacks_;
    const auto inPacks = check_.locate(packs, stop);
    if (!inPacks.outcome.succeeded())
        return inPacks.outcome;
    areAllOnDisk_ = areOnDisk(inPacks.damage, *keeper_->index());
    known_ = report;
    lastVerified_ = system_clock::now();
    keeper_->setDamage(damage_);
    tellOutcome();
    save();
    return {};
}

// Parts that are read later find damage beside what the structure shows, which is the same each time.
bool Verification::isNews(const CheckReport& report) const {
    const auto isKnown = [this](const std::string& pack) { return damagedPacks_.contains(pack); };
    return !known_ || known_->hasErrors != report.hasErrors || report.isIndexDamaged ||
           known_->missingPacks != report.missingPacks || known_->missingBlobs != report.missingBlobs ||
           known_->snapshots != report.snapshots || !std::ranges::all_of(report.damagedPacks, isKnown);
}

bool Verification::canSetAside() const {
    return !damagedPacks_.empty() && check_.canSetAside() && (areAllOnDisk_ || maySetAside_);
}

bool Verification::canRepair() const {
    return isIndexStale_ || canSetAside() || mustStoreAgain_;
}

ResticOutcome Verification::prepareRepair(const StopSignal& stop) {
    if (mustStoreAgain_ && !isIndexStale_ && !canSetAside())
        return {};
    if (canSetAside()) {
        if (const std::string failure = check_.setAside(damagedPacks_); !failure.empty())
            return {ResticTrouble::Failed, false, failure};
        damagedPacks_.clear();
        maySetAside_ = false;
        isIndexStale_ = true;
        save();
    }
    KelvaneSystemLog("Removing what is missing or damaged from the repository's index, to store it again.");
    ResticOutcome outcome = check_.renewIndex(stop);
    if (outcome.succeeded()) {
        isIndexStale_ = false;
        mustStoreAgain_ = true;
        save();
    }
    return outcome;
}

void Verification::noteStoredAgain() {
    mustStoreAgain_ = false;
    isStructureWanted_ = true;
    known_.reset();
    save();
}

void Verification::tellOutcome() {
    const DamagedFiles files = damagedFilesOf(*keeper_->index());
    isStoredDamaged_ = files.count > files.lostCount;
    lastOutcome_ = files.count == 0 ? "No damage found"
                                    : formatText("%llu files in the backup are damaged", files.count);
    lastOutcome_ += formatText("; %u of %u parts read in this round", partsRead_, options_.parts);
    state_->setDamagedFileCount(files.count);
    tell(std::nullopt);
    if (files.count == 0)
        return state_->withdrawAlert(damageAlert);
    if (std::exchange(loggedDamage_, damage_) != damage_)
        KelvaneSystemLog("%@.", lastOutcome_);
    std::string text;
    if (const std::uint64_t count = files.count - files.lostCount; count > 0)
        text += (canRepair() ? "The next backup stores these files again:"
                             : "These files cannot be stored again as long as their damaged data is in the "
                               "repository:") +
                listed(files.stored, count);
    if (files.lostCount > 0)
        text += (text.empty() ? "" : "\n") +
                std::string("These files are not on the disk any more and cannot be restored:") +
                listed(files.lost, files.lostCount);
    Alert alert{damageAlert, "error", "Files in the backup are damaged.", text};
    if (!damagedPacks_.empty() && check_.canSetAside() && !areAllOnDisk_)
        alert.actions = {"store-again:"};
    state_->raiseAlert(alert);
}

void Verification::tell(std::optional<double> progress) {
    state_->setVerification(lastVerified_, lastOutcome_);
    if (!progress && isOrdered_)
        progress = static_cast<double>(orderedPartsRead_) / orderedParts;
    state_->setVerificationProgress(progress);
}

void Verification::load() {
    roundBegan_ = system_clock::now();
    const FileReading file = readFile(options_.path, largestFile);
    if (file.error == ENOENT || file.error == ENOTDIR)
        return;
    const PropertyListReading list = readBinaryPropertyList(file.bytes);
    if (!file.succeeded() || !list.value.isDictionary()) {
        static_cast<void>(setAside(options_.path, file.succeeded() ? list.error : file.reason));
        return;
    }
    const Value& value = list.value;
    if (value["repository"].stringValue() != keeper_->index()->repositoryId())
        return;
    damage_ = Damage::fromValue(value["damage"]);
    for (const Value& pack : value["damagedPacks"].array())
        damagedPacks_.insert(pack.stringValue());
    isIndexStale_ = value["isIndexStale"].boolValue();
    mustStoreAgain_ = value["mustStoreAgain"].boolValue();
    partsRead_ = value["parts"].uint32Value() == options_.parts ? value["partsRead"].uint32Value() : 0;
    // A round that would begin later would leave the data unread for longer.
    roundBegan_ = std::min(timeFrom(value["roundBegan"]), roundBegan_ + options_.round / options_.parts);
    if (!value["lastVerified"].isAbsent())
        lastVerified_ = timeFrom(value["lastVerified"]);
    lastOutcome_ = value["lastOutcome"].stringValue();
}

void Verification::save() const {
    Dictionary value{{"repository", keeper_->index()->repositoryId()},
                     {"damage", damage_.value()},
                     {"damagedPacks", Array(damagedPacks_.begin(), damagedPacks_.end())},
                     {"isIndexStale", isIndexStale_},
                     {"mustStoreAgain", mustStoreAgain_},
                     {"parts", options_.parts},
                     {"partsRead", partsRead_},
                     {"roundBegan", secondsOf(roundBegan_)},
                     {"lastOutcome", lastOutcome_}};
    if (lastVerified_)
        value.set("lastVerified", secondsOf(*lastVerified_));
    const PropertyListWriting list = writeBinaryPropertyList(Value(std::move(value)));
    FileOutcome saved;
    if (list.succeeded() && ensureFolder(std::string(folderOf(options_.path))))
        saved = replaceFileAtomically(options_.path, list.bytes, privateMode);
    if (!list.succeeded() || !saved.succeeded())
        KelvaneSystemLog("Cannot save how far the verification is: %@",
                         list.succeeded() ? saved.reason : list.error);
}

} // namespace kelvane
