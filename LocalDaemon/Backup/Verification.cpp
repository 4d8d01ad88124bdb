#include "LocalDaemon/Backup/Verification.h"

#include "LocalDaemon/Backup/BackupTrouble.h"
#include "LocalDaemon/Backup/DamageReport.h"
#include "LocalDaemon/Index/RepositoryFiles.h"
#include "Support/Logging.h"

#include <algorithm>
#include <charconv>

namespace kelvane {
namespace {

using namespace std::chrono_literals;
using std::chrono::system_clock;

constexpr unsigned orderedParts = 8; // Few calls, but little to repeat after an interruption.
constexpr int restAfterStructure = 20;
constexpr std::chrono::milliseconds restForLeftOut = std::chrono::hours(24);

// Divides packs in the same way as restic.
bool isInPart(const std::string& pack, unsigned part, unsigned parts) {
    unsigned firstByte = 0;
    std::from_chars(pack.data(), pack.data() + std::min<std::size_t>(pack.size(), 2), firstByte, 16);
    return firstByte % parts == part - 1;
}

std::set<std::string> without(std::set<std::string> packs, const std::set<std::string>& others) {
    std::erase_if(packs, [&](const std::string& pack) { return others.contains(pack); });
    return packs;
}

bool isWhole(const CheckReport& report) {
    return !report.hasErrors && !report.isIndexDamaged;
}

} // namespace

Verification::Verification(std::shared_ptr<DaemonState> state, std::shared_ptr<IndexKeeper> keeper,
                           Options options)
    : state_(std::move(state)),
      keeper_(std::move(keeper)),
      options_(std::move(options)),
      record_(VerificationRecord::read(options_.path)) {
    useRepository(keeper_->index()->repositoryId());
    keeper_->setRepositoryChanged([this](const std::string& id) { useRepository(id); });
}

std::chrono::milliseconds Verification::timeUntilDue() const {
    const auto now = Clock::now();
    const auto until = [now](Clock::time_point time) {
        return time == Clock::time_point::max()
                   ? std::chrono::milliseconds::max()
                   : std::max(0ms, std::chrono::ceil<std::chrono::milliseconds>(time - now));
    };
    if (!state_->verificationOrders().areTried())
        return 0ms;
    const auto partDue = record_.roundBegan + options_.round / options_.parts * record_.partsRead;
    const auto untilPart =
        isRoundAhead() ? 0ms : std::chrono::ceil<std::chrono::milliseconds>(partDue - system_clock::now());
    return std::max(until(notBefore_), std::min(std::max(0ms, untilPart), until(structureDue())));
}

// Returns whether the last round ended while the clock was ahead. Without this check nothing would be read
// until the clock reaches that time.
bool Verification::isRoundAhead() const {
    return record_.roundBegan > system_clock::now() + 2 * options_.round / options_.parts;
}

// While damage is known, the check is repeated after `retry`: a missing pack may come back at any time.
Verification::Clock::time_point Verification::structureDue() const {
    if (isStructureWanted_)
        return structureNotBefore_;
    return isDamageKnown(record_) ? std::max(structureNotBefore_, structureChecked_ + options_.retry)
                                  : Clock::time_point::max();
}

bool Verification::isStructureDue(bool isAwaited) const {
    return (isAwaited && isStructureWanted_) || Clock::now() >= structureDue();
}

ResticOutcome Verification::performDue(const StopSignal& stop) {
    const bool isOrdered = !state_->verificationOrders().areTried();
    const std::uint64_t orders = state_->verificationOrders().count();
    ResticOutcome outcome = isOrdered               ? readAll(stop)
                            : isStructureDue(false) ? checkStructure(stop)
                                                    : readNextPart(stop);
    if (outcome.succeeded() || outcome.trouble == ResticTrouble::Stopped)
        return outcome;
    logWarning("Verification failed: %@; retrying in %lld s", reasonOf(outcome),
               std::chrono::ceil<std::chrono::seconds>(options_.retry).count());
    notBefore_ = Clock::now() + options_.retry;
    if (isOrdered) {
        record_.lastOutcome = "Not verified: " + reasonOf(outcome);
        tell(std::nullopt);
        state_->verificationOrders().noteTried(orders);
    }
    return outcome;
}

ResticOutcome Verification::checkStructure(const StopSignal& stop) {
    const auto begin = Clock::now();
    const CheckReport report = checkWithTrueIndex(stop);
    const ResticOutcome outcome = report.outcome.succeeded() ? take(report, stop) : report.outcome;
    if (outcome.succeeded()) {
        isStructureWanted_ = false;
        structureChecked_ = Clock::now();
        structureNotBefore_ = structureChecked_ + restAfterStructure * (structureChecked_ - begin);
    }
    return outcome;
}

// A pack that is temporarily missing must not cost any data: it is removed from the index only after the
// second check, and added again as soon as it is back. Pruning cannot remove it before that, because
// restic does not prune a repository with missing data.
CheckReport Verification::checkWithTrueIndex(const StopSignal& stop) {
    CheckReport report = check_.structure(RepositoryCheck::Source::Cache, stop);
    // Without its cache restic retries for minutes to read missing data.
    if (report.outcome.succeeded() && isNews(report)) {
        const bool isCacheWhole = isWhole(report);
        report = check_.structure(report.missingPacks.empty() ? RepositoryCheck::Source::Repository
                                                              : RepositoryCheck::Source::Cache,
                                  stop);
        if (!isCacheWhole && report.outcome.succeeded() && isWhole(report))
            keeper_->repository().restic().removeCache();
    }
    if (!report.outcome.succeeded() || !mustRenewIndex(report) || !state_->backupNeed().mayAdd)
        return report;
    for (const std::string& pack : report.missingPacks)
        logError("Pack file %@ is missing from the repository.", pack);
    const ResticOutcome renewed = renewIndex(stop);
    if (renewed.trouble == ResticTrouble::Stopped)
        report.outcome = renewed;
    if (!renewed.succeeded())
        return report;
    for (const std::string& pack : report.unknownPacks)
        record_.missingPacks.erase(pack);
    record_.missingPacks.insert(report.missingPacks.begin(), report.missingPacks.end());
    record_.mustStoreAgain = record_.mustStoreAgain || report.isIndexDamaged || !report.missingPacks.empty();
    record_.save(options_.path);
    report = check_.structure(RepositoryCheck::Source::Repository, stop);
    leftOut_ = report.unknownPacks;
    leftOutUntil_ = Clock::now() + (isWhole(report) ? restForLeftOut : options_.retry);
    return report;
}

bool Verification::mustRenewIndex(const CheckReport& report) const {
    const auto isNew = [this](const std::string& pack) {
        return !leftOut_.contains(pack) || Clock::now() >= leftOutUntil_;
    };
    return report.isIndexDamaged || !report.missingPacks.empty() ||
           std::ranges::any_of(report.unknownPacks, isNew);
}

ResticOutcome Verification::renewIndex(const StopSignal& stop) {
    logNotice("Rebuilding the repository's index from the existing packs.");
    ResticOutcome outcome = check_.renewIndex(stop);
    if (!outcome.succeeded() && outcome.trouble != ResticTrouble::Stopped)
        logWarning("The repository's index cannot be rebuilt: %@", reasonOf(outcome));
    return outcome;
}

// Missing packs are found first without reading them, which restic would retry for a long time.
ResticOutcome Verification::readPart(unsigned part, unsigned parts, const StopSignal& stop) {
    CheckReport report = check_.contents(part, parts, stop);
    if (report.outcome.succeeded() && isNews(report))
        report = check_.contents(part, parts, stop);
    if (!report.outcome.succeeded())
        return report.outcome;
    // A pack that was recorded as damaged and can be read now is intact: the disk had failed to read it.
    if (report.missingPacks.empty() && !report.isIndexDamaged &&
        std::erase_if(record_.damagedPacks, [&](const std::string& pack) {
            return isInPart(pack, part, parts) && !report.damagedPacks.contains(pack);
        }) > 0)
        known_.reset();
    return take(report, stop);
}

ResticOutcome Verification::readNextPart(const StopSignal& stop) {
    tell(static_cast<double>(record_.partsRead) / options_.parts);
    ResticOutcome outcome = checkStructure(stop);
    if (outcome.succeeded() && !record_.isIndexStale)
        outcome = readPart(record_.partsRead + 1, options_.parts, stop);
    if (outcome.succeeded() && record_.isIndexStale)
        notBefore_ = Clock::now() + options_.retry;
    if (outcome.succeeded() && !record_.isIndexStale) {
        if (isRoundAhead())
            record_.roundBegan = system_clock::now();
        if (++record_.partsRead >= options_.parts) {
            record_.partsRead = 0;
            record_.roundBegan = std::max(system_clock::now(), record_.roundBegan + options_.round);
            reportLoss();
        }
        tellOutcome({});
        record_.save(options_.path);
    }
    tell(std::nullopt);
    return outcome;
}

// A request that arrives during the verification starts another one.
ResticOutcome Verification::readAll(const StopSignal& stop) {
    std::uint64_t orders = 0;
    do {
        orders = state_->verificationOrders().count();
        ResticOutcome outcome = checkStructure(stop);
        while (outcome.succeeded() && !record_.isIndexStale && orderedPartsRead_ < orderedParts) {
            tell(static_cast<double>(orderedPartsRead_) / orderedParts);
            outcome = readPart(orderedPartsRead_ + 1, orderedParts, stop);
            orderedPartsRead_ += outcome.succeeded() && !record_.isIndexStale ? 1U : 0U;
        }
        if (!outcome.succeeded())
            return outcome;
    } while (orders != state_->verificationOrders().count());
    if (orderedPartsRead_ == orderedParts) {
        record_.partsRead = 0;
        record_.roundBegan = system_clock::now() + options_.round / options_.parts;
        reportLoss();
        tellOutcome("; everything was read");
    } else {
        tellOutcome("; not everything was read, because the index lists missing packs");
    }
    orderedPartsRead_ = 0;
    record_.save(options_.path);
    state_->verificationOrders().noteTried(orders);
    return {};
}

ResticOutcome Verification::take(const CheckReport& report, const StopSignal& stop) {
    bool isOther = isNews(report) || locatedIn_ != newestSnapshot();
    record_.damagedPacks.insert(report.damagedPacks.begin(), report.damagedPacks.end());
    if (!record_.damagedPacks.empty()) { // Some packs may have been pruned.
        const auto present = check_.present(record_.damagedPacks, stop);
        if (!present.outcome.succeeded())
            return present.outcome;
        isOther = isOther || present.ids != record_.damagedPacks;
        record_.damagedPacks = present.ids;
    }
    if (isWhole(report))
        record_.missingPacks.clear();
    if (isOther)
        if (ResticOutcome outcome = locate(report, stop); !outcome.succeeded())
            return outcome;
    record_.lastVerified = system_clock::now();
    tellOutcome({});
    if (isOther)
        record_.save(options_.path);
    return {};
}

ResticOutcome Verification::locate(const CheckReport& report, const StopSignal& stop) {
    CheckReport all = report;
    all.damagedPacks = record_.damagedPacks;
    const auto located = check_.locate(all, RepositoryCheck::Snapshots::Own, stop);
    if (!located.outcome.succeeded())
        return located.outcome;
    const bool isIndexStale = report.isIndexDamaged || !report.missingPacks.empty();
    bool areAllOnDisk = false;
    record_.othersPacks.clear();
    if (!record_.damagedPacks.empty() && !isIndexStale) {
        const auto others = check_.neededByOthers(record_.damagedPacks, stop);
        if (!others.outcome.succeeded())
            return others.outcome;
        record_.othersPacks = others.ids;
        CheckReport packs;
        packs.damagedPacks = without(record_.damagedPacks, others.ids);
        const auto inPacks = check_.locate(packs, RepositoryCheck::Snapshots::All, stop);
        if (!inPacks.outcome.succeeded())
            return inPacks.outcome;
        areAllOnDisk = areOnDisk(inPacks.damage, *keeper_->index());
    }
    record_.damage = located.damage;
    record_.isIndexStale = isIndexStale;
    record_.areAllOnDisk = areAllOnDisk;
    known_ = report;
    locatedIn_ = newestSnapshot();
    keeper_->setDamage(record_.damage);
    return {};
}

// Every report repeats the damage of the structure; reading a part may add damaged packs to it.
bool Verification::isNews(const CheckReport& report) const {
    const auto isKnown = [this](const std::string& pack) { return record_.damagedPacks.contains(pack); };
    return !known_ || known_->hasErrors != report.hasErrors || report.isIndexDamaged ||
           known_->missingPacks != report.missingPacks || known_->missingBlobs != report.missingBlobs ||
           known_->snapshots != report.snapshots || !std::ranges::all_of(report.damagedPacks, isKnown);
}

// Empty while no damage is known. Damage is located again after a new snapshot, which may share it.
std::string Verification::newestSnapshot() const {
    const Snapshot* const newest = keeper_->index()->newestSnapshot();
    return newest && isDamageKnown(record_) ? newest->id : std::string();
}

// Packs that snapshots of others need are never set aside, not even on request.
bool Verification::mayBeSetAside() const {
    return !std::ranges::includes(record_.othersPacks, record_.damagedPacks) && check_.canSetAside();
}

bool Verification::canSetAside() const {
    return mayBeSetAside() && (record_.areAllOnDisk || maySetAside_);
}

bool Verification::canRepair() const {
    return record_.isIndexStale || canSetAside() || record_.mustStoreAgain;
}

ResticOutcome Verification::prepareRepair(const StopSignal& stop) {
    hasRepairFailed_ = true;
    if (canSetAside()) {
        // A pack that can be read now is not set aside.
        const auto damaged = check_.damaged(record_.damagedPacks, stop);
        if (!damaged.outcome.succeeded())
            return damaged.outcome;
        const auto others = check_.neededByOthers(damaged.ids, stop);
        if (!others.outcome.succeeded())
            return others.outcome;
        if (const std::string failure = check_.setAside(without(damaged.ids, others.ids)); !failure.empty())
            return {.trouble = ResticTrouble::Failed, .errors = failure};
        record_.damagedPacks = others.ids;
        record_.othersPacks = others.ids;
        record_.areAllOnDisk = false;
        maySetAside_ = false;
        record_.isIndexStale = true;
        known_.reset();
        record_.save(options_.path);
    }
    if (record_.isIndexStale) {
        if (ResticOutcome outcome = renewIndex(stop); !outcome.succeeded())
            return outcome;
        record_.isIndexStale = false;
        record_.mustStoreAgain = true;
        record_.save(options_.path);
    }
    hasRepairFailed_ = false;
    return {};
}

void Verification::noteChange() {
    isStructureWanted_ = true;
    if (std::exchange(record_.damage, keeper_->damage()) != keeper_->damage())
        record_.save(options_.path);
}

void Verification::noteStoredAgain() {
    record_.mustStoreAgain = false;
    isStructureWanted_ = true;
    structureNotBefore_ = {};
    known_.reset();
    record_.save(options_.path);
}

// An index that was lost is rebuilt for the same repository, whose damage remains.
void Verification::useRepository(const std::string& id) {
    if (!id.empty() && !record_.repository.empty() && id != record_.repository) {
        exchangeFile(options_.path, record_.repository, id);
        record_ = VerificationRecord::read(options_.path);
        if (record_.repository != id)
            record_ = {};
        known_.reset();
        leftOut_.clear();
        maySetAside_ = false;
        hasRepairFailed_ = false;
        orderedPartsRead_ = 0;
        isStructureWanted_ = true;
        structureNotBefore_ = {};
    }
    if (!id.empty())
        record_.repository = id;
    if (std::exchange(record_.parts, options_.parts) != options_.parts || record_.partsRead >= record_.parts)
        record_.partsRead = 0;
    // A later start of the round would leave data unread for longer.
    record_.roundBegan = std::min(record_.roundBegan, system_clock::now() + options_.round / options_.parts);
    keeper_->setDamage(record_.damage);
    reportLoss();
    if (isDamageKnown(record_))
        return tellOutcome({});
    isStoredDamaged_ = false;
    state_->setDamage(false, 0);
    state_->alerts()->withdraw(damageAlert);
    tell(std::nullopt);
}

} // namespace kelvane
